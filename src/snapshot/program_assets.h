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

/// Returns the files in the installation directory that make up the program: certain kinds of file
/// at its top level and everything below its "data" directory. What else is there belongs to the
/// user. Raises `std::runtime_error` "Reparse points are not supported in installation directory"
/// or "Reparse points are not supported in program assets" for a link of any kind or
/// an entry whose attributes cannot be read, and
/// `std::filesystem::filesystem_error` when the tree cannot be listed.
ProgramAssets EnumerateProgramAssets(const std::filesystem::path& installDirectory);

}  // namespace updater
