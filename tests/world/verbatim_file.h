#pragma once

#include <filesystem>
#include <string_view>

namespace updater {

/// Returns the absolute path in the form that the system takes as it stands, whatever its length
/// and its names.
std::filesystem::path VerbatimPath(const std::filesystem::path& path);

/// A file whose name is taken letter by letter: a dot or a space at its end belongs to it, and a
/// name in another letter case is another name. Plain paths do not lead to it, or lead to another
/// file. It is deleted at the end of the scope. Raises `std::runtime_error` when the system makes
/// no such file.
struct VerbatimFile {
    VerbatimFile(const std::filesystem::path& filePath, std::string_view content);
    ~VerbatimFile();
    VerbatimFile(const VerbatimFile&) = delete;
    VerbatimFile& operator=(const VerbatimFile&) = delete;

    std::filesystem::path path;
};

}  // namespace updater
