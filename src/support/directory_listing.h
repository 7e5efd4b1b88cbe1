#pragma once

#include <filesystem>
#include <functional>

namespace updater {

/// An entry as the listing shows it. Its path is relative to the listed directory; its type is that
/// of the entry itself, links not followed: `regular`, `directory`, `symlink`, or `unknown` for any
/// other reparse point.
struct ListedEntry {
    std::filesystem::path relativePath;
    std::filesystem::file_type type;
};

using EntryVisitor = std::function<void(const ListedEntry& entry)>;

/// The operations that a listing's errors name: opening it, and going on to the next entry or into
/// a subdirectory.
struct ListingOperations {
    const char* open;
    const char* advance;
};

/// Calls the visitor for each entry directly in the directory, in the system's order. Raises
/// `std::filesystem::filesystem_error`, operation "directory_iterator::directory_iterator" or
/// "directory_iterator::operator++".
void VisitDirectory(const std::filesystem::path& directory, const EntryVisitor& visit);

/// Calls the visitor for each entry at any depth below the directory, a directory before what it
/// contains; links are visited but not entered. Raises `std::filesystem::filesystem_error` with
/// the given operations, which are those of the library's recursive iterator unless told otherwise.
void VisitTree(const std::filesystem::path& directory, const EntryVisitor& visit,
               const ListingOperations& operations = {
                   "recursive_directory_iterator::recursive_directory_iterator",
                   "recursive_directory_iterator::operator++"});

}  // namespace updater
