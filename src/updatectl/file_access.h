#pragma once

#include <filesystem>
#include <string>

#include "support/handle.h"

namespace updater {

/// Returns the canonical path of an existing directory. Raises `std::system_error` when there is
/// none, or when it cannot be reached.
std::filesystem::path RequireDirectory(const std::filesystem::path& path);

/// Opens a file to read it; others may do what they like with it meanwhile. Raises
/// `std::system_error`.
UniqueHandle OpenForReading(const std::filesystem::path& file);

/// Returns the file's SHA-256 digest in lower-case hexadecimal digits. Unlike the updater's own
/// function it says which file could not be read, and why: raises `std::system_error` when the file
/// cannot be opened, else `std::runtime_error`.
std::string DigestOf(const std::filesystem::path& file);

/// Returns the version of an executable as the updater reads it. Unlike the updater's own function
/// it says which file has none, and why it cannot be read; it raises the same errors.
std::wstring VersionOf(const std::filesystem::path& executable);

}  // namespace updater
