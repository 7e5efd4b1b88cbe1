#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace updater {

// Every update works in a staging directory of its own, directly in the machine's data folder,
// whose name begins with `kStagingPrefix`. It stays there after the update, unless that was
// cancelled.

/// What a staging directory holds: the setup program, which is there first; the backup of the
/// installed program; and the log that the setup program makes when it starts.
inline constexpr wchar_t kStagedSetupProgram[] = L"installer.exe";
inline constexpr wchar_t kBackupDirectory[] = L"backup";
inline constexpr wchar_t kSetupLog[] = L"install.log";

/// Returns the folder for data of all users of the machine. Raises `std::runtime_error` "Cannot
/// locate machine staging directory".
std::filesystem::path MachineDataFolder();

/// Creates a new directory for one update under the machine's data folder. Only the system and
/// administrators have access to it; nothing is inherited from the folder above. Raises
/// `std::runtime_error` "Cannot locate machine staging directory", "Cannot create protected staging
/// directory", "Protected staging directory already exists or is inaccessible", and what
/// `CreateJobIdentity` does.
std::filesystem::path CreateStagingDirectory();

/// Copies the setup program into the staging directory and checks the copy, which no unelevated
/// process can change, against the expected size in bytes and digest. Returns the copy's path.
/// Raises `std::runtime_error` "Protected installer size or SHA256 mismatch" and what the file
/// operations and the digest do; the copy then stays.
std::filesystem::path StageSetupProgram(const std::filesystem::path& setupProgram,
                                        const std::filesystem::path& stagingDirectory,
                                        std::uint64_t expectedSize,
                                        const std::string& expectedSha256);

}  // namespace updater
