#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace updater {

/// Returns, in order, the name of every library in the system's directory except the few that
/// Windows takes from its list of known libraries and that are in every process anyway. All that
/// the updater uses, and all that those use in turn, are among them.
std::vector<std::wstring> LibrariesToPlant();

/// Puts a library that leaves a mark when it is loaded into the directory under each of the names.
void PlantLibraries(const std::filesystem::path& directory, const std::vector<std::wstring>& names);

/// That a planted library was loaded, and by which program.
struct LoadMark {
    std::wstring library;
    std::string program;
};

/// Returns the marks of the planted libraries of this directory in the order of their names.
std::vector<LoadMark> LoadMarks(const std::filesystem::path& directory);

/// Deletes the marks of the libraries that were loaded from this directory.
void RemoveLoadMarks(const std::filesystem::path& directory);

/// While it is in scope, programs of this name that are started under Wine take a library that they
/// find on their search path before Wine's own. Windows does so with every library that is not in
/// its list of known ones.
struct NativeLibrariesFirst {
    NativeLibrariesFirst(const std::wstring& programName, const std::vector<std::wstring>& names);
    ~NativeLibrariesFirst();
    NativeLibrariesFirst(const NativeLibrariesFirst&) = delete;
    NativeLibrariesFirst& operator=(const NativeLibrariesFirst&) = delete;

    std::wstring key;
};

}  // namespace updater
