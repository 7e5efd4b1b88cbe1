#pragma once

#include <filesystem>
#include <string_view>

namespace updater {

/// Writes a file that holds this content and nothing else, whether or not there was one before;
/// others may read and write it meanwhile. Returns whether all of it was written. If not, the file
/// is as it was, or missing, when it could not be opened, and cut off otherwise.
bool OverwriteFile(const std::filesystem::path& file, std::string_view content) noexcept;

}  // namespace updater
