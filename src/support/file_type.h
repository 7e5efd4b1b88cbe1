#pragma once

#include <filesystem>

namespace updater {

enum class Links { Followed, NotFollowed };

/// Returns what exists under the path (`regular`, `directory`, `symlink`, `unknown` for other
/// reparse points) or `not_found`. Raises `std::filesystem::filesystem_error` for the named
/// operation when it exists but cannot be queried.
std::filesystem::file_type QueryFileType(const std::filesystem::path& path, Links links,
                                         const char* operation);

}  // namespace updater
