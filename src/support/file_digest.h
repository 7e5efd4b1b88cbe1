#pragma once

#include <filesystem>
#include <string>

namespace updater {

/// Returns the SHA-256 digest of the file's bytes as 64 lower-case hexadecimal characters; digests
/// are compared as plain texts. Memory use does not depend on the file's size. Raises
/// `std::runtime_error` "SHA256 initialization failed" when the system's provider cannot be used,
/// and "SHA256 verification failed" when the file cannot be opened or read to its end.
std::string FileSha256Hex(const std::filesystem::path& file);

}  // namespace updater
