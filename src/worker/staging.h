#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace updater {

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
std::filesystem::path StageInstaller(const std::filesystem::path& installer,
                                     const std::filesystem::path& stagingDirectory,
                                     std::uint64_t expectedSize, const std::string& expectedSha256);

}  // namespace updater
