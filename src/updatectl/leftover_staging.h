#pragma once

#include <cstdint>
#include <filesystem>
#include <string_view>
#include <vector>

namespace updater {

/// Whether a directory of this name is one that an update made for itself.
bool IsStagingName(std::wstring_view name);

/// A staging directory that an update left.
struct LeftoverStaging {
    std::filesystem::path path;
    /// When it was made: 100-nanosecond intervals since the year 1601, UTC.
    std::uint64_t created;
};

/// Returns the staging directories in a folder, the newest first. Links are none. Raises
/// `std::filesystem::filesystem_error` when the folder cannot be listed.
std::vector<LeftoverStaging> ListLeftoverStaging(const std::filesystem::path& folder);

/// Whether the directory belongs to the system, to the administrators or to the user who runs this.
/// Anybody may make a directory of such a name in the folder of all users' data, and could
/// redirect, by links in it, what an administrator then does there. Raises `std::system_error` when
/// the owner cannot be read.
bool IsOwnedByAdministrator(const std::filesystem::path& directory);

/// Whether the setup program in a staging directory still runs. That is possible without a worker,
/// when the worker was ended by force. The setup program loses the attributes that forbid to write
/// to it.
bool IsSetupRunning(const std::filesystem::path& stagingDirectory);

/// Whether the updater backs up a file of this path relative to the installation directory, with
/// backslashes and without "." and "..". The data directory may be spelled in any letter case.
bool BelongsToBackup(const std::filesystem::path& relativePath);

/// Raises `std::runtime_error` without an administrator's rights.
void RequireAdministrator();

}  // namespace updater
