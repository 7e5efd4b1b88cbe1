#pragma once

#include <filesystem>
#include <vector>

#include "floor/bare_calls.h"

namespace bench {

struct ListedFile {
    std::filesystem::path relativePath;
    Digest digest;
};

/// A program's files as its inventory, program-files.tsv, tells them. The floor is handed this
/// list: it looks nothing up in the measured time.
struct FileList {
    std::vector<ListedFile> files;
    /// Every directory of theirs, relative and before those in it.
    std::vector<std::filesystem::path> directories;
};

/// Reads the list of the program in a directory; its names are ASCII. Raises `std::runtime_error`.
FileList ReadFileList(const std::filesystem::path& program);

}  // namespace bench
