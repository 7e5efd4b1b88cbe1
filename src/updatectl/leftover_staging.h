#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "updatectl/protected_directory.h"

namespace updater {

/// Whether a directory of this name is one that an update made for itself.
bool IsStagingName(std::wstring_view name);

/// The directories of such names in a folder.
struct StagingListing {
    /// Those that only an updater can have made, the newest first. They are held open.
    std::vector<ProtectedDirectory> leftovers;
    /// For each other one a sentence, without a full stop, that says why it is not taken for the
    /// updater's: anybody may make something of such a name in the folder of all users' data, and
    /// could redirect, by links in it, what an administrator then does there.
    std::vector<std::string> others;
};

/// Looks for staging directories. Raises `std::filesystem::filesystem_error` when the folder cannot
/// be listed.
StagingListing FindStagingDirectories(const std::filesystem::path& folder);

/// Whether the setup program in a staging directory still runs. That is possible without a worker,
/// when the worker was ended by force. The setup program, which must be no link, loses the
/// attributes that forbid to write to it.
bool IsSetupRunning(const std::filesystem::path& stagingDirectory);

/// Whether the updater backs up a file of this path relative to the installation directory, with
/// backslashes and without "." and "..". The data directory may be spelled in any letter case.
bool BelongsToBackup(const std::filesystem::path& relativePath);

/// Raises `std::runtime_error` without an administrator's rights.
void RequireAdministrator();

}  // namespace updater
