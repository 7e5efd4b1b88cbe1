#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace updater {

/// While the inventory is written, it has this name in the program directory.
inline constexpr wchar_t kTemporaryInventory[] = L"program-files.tsv.tmp";

/// An entry that cannot be installed on a user's machine and verified there.
struct TreeFault {
    std::wstring relativePath;
    /// In words that follow the path: "is a link".
    std::string fault;
};

struct ProgramTree {
    /// Paths with backslashes, relative to the program directory, ordered element by element.
    std::vector<std::filesystem::path> files;
    /// Ordered by path.
    std::vector<TreeFault> faults;
};

/// Tells by the relative path whether a file, or a directory with all that is in it, is left out.
using TreeFilter = std::function<bool(const std::wstring& relativePath)>;

/// Lists every file below the program directory except the inventory itself, what an interrupted
/// writing of it left, and what the filter leaves out. An entry with a fault is not among the
/// files, and a directory with one is not entered. Raises `std::filesystem::filesystem_error` when
/// the program directory itself cannot be listed.
ProgramTree ListProgramTree(const std::filesystem::path& directory, const TreeFilter& isLeftOut);

}  // namespace updater
