#pragma once

#include <filesystem>
#include <string>

#include "support/handle.h"

namespace updater {

/// Raises `std::system_error` whose message is `action`, what could not be done with which file,
/// and the system's words for the Windows error number.
[[noreturn]] void RaiseWindowsError(const std::string& action, unsigned long error);

/// Returns the canonical path of an existing directory. Raises `std::system_error` when there is
/// none, or when it cannot be reached.
std::filesystem::path RequireDirectory(const std::filesystem::path& path);

/// Opens a file to read it; others may do what they like with it meanwhile. Raises
/// `std::system_error`.
UniqueHandle OpenForReading(const std::filesystem::path& file);

/// Returns the file's SHA-256 digest in lower-case hexadecimal digits. Unlike the updater's own
/// function it says which file could not be read, and why.
std::string DigestOf(const std::filesystem::path& file);

/// Returns the version of an executable as the updater reads it. Unlike the updater's own function
/// it says which file has none, and why it cannot be read.
std::wstring VersionOf(const std::filesystem::path& executable);

}  // namespace updater
