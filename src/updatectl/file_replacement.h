#pragma once

#include <filesystem>
#include <string_view>

namespace updater {

/// Writes a file of the path's name with ".tmp" behind it, and gives it its own name once it is
/// complete; an earlier file is as it was until then. Raises `std::system_error`, and leaves
/// nothing behind, when that fails.
void ReplaceContent(const std::filesystem::path& file, std::string_view content);

}  // namespace updater
