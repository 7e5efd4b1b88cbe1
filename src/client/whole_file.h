#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace updater {

/// Returns a file's bytes, but of a longer one only more than `limit` of them; nothing when there
/// is none. Raises `ClientFailure` APP_UPDATE_FILE_ERROR for one that cannot be read.
std::optional<std::string> ReadFileUpTo(const std::filesystem::path& file, std::size_t limit);

/// Replaces a file, or makes a new one: after a failure, or a power cut, it is as before or
/// complete. Raises `ClientFailure` APP_UPDATE_FILE_ERROR or APP_UPDATE_DISK_FULL.
void ReplaceWholeFile(const std::filesystem::path& file, std::string_view content);

/// Operations on a file.
inline constexpr char kCannotRead[] = "Cannot read";
inline constexpr char kCannotWrite[] = "Cannot write";

/// Raises `ClientFailure` for an operation, such as these, on a file or directory and the
/// Windows error number: APP_UPDATE_DISK_FULL or else APP_UPDATE_FILE_ERROR.
[[noreturn]] void RaiseFileFailure(std::string_view operation, const std::filesystem::path& path,
                                   unsigned long error);

}  // namespace updater
