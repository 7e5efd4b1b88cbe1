#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <span>

#include "support/windows_api.h"

namespace bench {

// The least that copies and digests take: the Windows calls themselves. Every function raises
// `std::system_error`.

using Digest = std::array<unsigned char, 32>;

/// What is read, and given to the system's hash, at a time.
inline constexpr std::size_t kChunkBytes = 65536;

/// Returns the SHA-256 digest of a file's bytes, read with `ReadFile`.
Digest DigestOfFile(const std::filesystem::path& file);

/// Returns the SHA-256 digest of bytes in memory.
Digest DigestOfMemory(std::span<unsigned char> bytes);

/// Copies a file with `CopyFileW`, over an existing one if need be.
void CopyWholeFile(const std::filesystem::path& source, const std::filesystem::path& target);

/// Has the system write everything of a file's or directory's volume to the disk. Returns false
/// where it does not do that.
bool FlushVolume(const std::filesystem::path& entry);

/// Creates a directory whose parent exists; it may exist itself.
void MakeDirectory(const std::filesystem::path& directory);

}  // namespace bench
