#pragma once

#include <filesystem>

namespace updater {

/// Returns what exists under the path, links followed: `regular` or `directory`, or `not_found`
/// also for a link whose target is gone. Raises `std::filesystem::filesystem_error` for the named
/// operation when it exists but cannot be queried.
std::filesystem::file_type QueryFileType(const std::filesystem::path& path, const char* operation);

}  // namespace updater
