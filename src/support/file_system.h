#pragma once

#include <cstdint>
#include <filesystem>

namespace updater {

// The operations of the standard filesystem library that the updater uses, built on the Windows
// calls: toolchains differ in what their library does on Windows (one does not replace a file that
// differs, nor resolve links and letter case) and in what its errors say. Each function raises
// `std::filesystem::filesystem_error`, whose message holds the name of the library's operation
// given below, the system's text and the path or paths.

/// Copies a file to a path where nothing exists yet. Operation "copy_file".
void CopyToNewFile(const std::filesystem::path& source, const std::filesystem::path& target);

/// Copies a file and replaces the target if it exists, a read-only or hidden one too. Operation
/// "copy_file".
void CopyOverFile(const std::filesystem::path& source, const std::filesystem::path& target);

/// Returns the file's size in bytes; a link's own, not its target's. Operation "file_size".
std::uintmax_t FileSize(const std::filesystem::path& file);

/// Whether something of that name exists, links followed. Operation "exists".
bool PathExists(const std::filesystem::path& path);

/// Creates a directory with all its missing parents; an existing directory is fine. Operation
/// "create_directories".
void CreateDirectories(const std::filesystem::path& directory);

/// Removes the attributes that keep a file from being overwritten or deleted. Returns whether it
/// had any and has lost them; raises nothing.
bool ClearProtection(const std::filesystem::path& file);

/// Deletes one file, a read-only one too; one that is already gone is fine. Operation "remove".
void RemoveFile(const std::filesystem::path& file);

/// Deletes a directory with everything in it, or a file; what is already gone is fine. Links are
/// deleted, never followed. Operation "remove_all".
void RemoveTree(const std::filesystem::path& directory);

}  // namespace updater
