#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace updater {

// The small files in the data directory. Any program of the user may write to them, so whoever
// reads one takes nothing in it for granted.

/// Reads a whole file, which others may replace or delete meanwhile. Nothing when there is none,
/// when it is larger than the limit, or when it cannot be read.
std::optional<std::string> ReadKeptFile(const std::filesystem::path& file, std::size_t limit);

/// Replaces a file whole by a rename: it holds the old content or the new one, also after a
/// failure. Raises `ClientFailure` APP_UPDATE_FILE_ERROR or APP_UPDATE_DISK_FULL.
void ReplaceKeptFile(const std::filesystem::path& file, std::string_view content);

}  // namespace updater
