#pragma once

#include <cstddef>
#include <cstdint>
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

/// Raises `std::runtime_error` "Cannot use FILE: REASON".
[[noreturn]] void RaiseUnusable(const std::filesystem::path& file, const std::string& reason);

/// Returns a file's bytes. Raises `std::system_error` when it cannot be opened, and `RaiseUnusable`
/// when it cannot be read to its end or has more than `most` bytes.
std::string ContentOf(const std::filesystem::path& file, std::size_t most);

/// Returns the file's SHA-256 digest in lower-case hexadecimal digits. Unlike the updater's own
/// function it says which file could not be read, and why: raises `std::system_error` when the file
/// cannot be opened, else `std::runtime_error`.
std::string DigestOf(const std::filesystem::path& file);

struct FileFacts {
    std::uint64_t size = 0;
    std::string sha256;
};

/// Returns a file's size and digest, of what a link leads to. Raises what `DigestOf` does.
FileFacts FactsOf(const std::filesystem::path& file);

/// Returns the version of an executable as the updater reads it. Unlike the updater's own function
/// it says which file has none, and why it cannot be read; it raises the same errors.
std::wstring VersionOf(const std::filesystem::path& executable);

}  // namespace updater
