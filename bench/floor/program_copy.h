#pragma once

#include <filesystem>

#include "floor/file_list.h"

namespace bench {

/// Copies the listed files, and those named in `unlisted`, to a directory that does not exist yet,
/// and makes sure that the digests of copy and source are equal. Raises `std::runtime_error`.
void CopyWithDigests(const std::filesystem::path& program, const std::filesystem::path& target,
                     const FileList& list, const std::vector<std::filesystem::path>& unlisted);

/// Makes sure that the listed files have the listed digests. Raises `std::runtime_error`.
void CheckDigests(const std::filesystem::path& program, const FileList& list);

/// What an installed program has beside the files of its list, as far as an update replaces it.
std::vector<std::filesystem::path> UnlistedFiles(const std::filesystem::path& program);

}  // namespace bench
