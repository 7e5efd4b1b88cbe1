#pragma once

#include <filesystem>
#include <set>

namespace updater {

/// The installed program's files: paths relative to the installation directory, ordered component
/// by component. It never holds a directory.
using ProgramAssets = std::set<std::filesystem::path>;

/// The directory in the installation directory whose every file belongs to the program.
inline constexpr wchar_t kDataDirectory[] = L"data";

/// Whether a file of this name, directly in the installation directory, is a program asset.
bool IsTopLevelAsset(const std::filesystem::path& name);

/// Whether a file of this relative path, in the form that the enumeration gives, is a program
/// asset.
inline bool IsProgramAsset(const std::filesystem::path& relativePath) {
    return relativePath.has_parent_path() ? *relativePath.begin() == kDataDirectory
                                          : IsTopLevelAsset(relativePath);
}

/// Returns the files in the installation directory that make up the program: certain kinds of file
/// at its top level and everything below its "data" directory. What else is there belongs to the
/// user. Raises `std::runtime_error` "Reparse points are not supported in installation directory"
/// or "Reparse points are not supported in program assets" for a link of any kind, and
/// `std::filesystem::filesystem_error` when the tree cannot be listed.
ProgramAssets EnumerateProgramAssets(const std::filesystem::path& installDirectory);

}  // namespace updater
