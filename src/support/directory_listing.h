#pragma once

#include <filesystem>
#include <functional>

namespace updater {

/// Called for each entry with its path relative to the listed directory.
using EntryVisitor = std::function<void(const std::filesystem::path& relativePath)>;

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

/// Returns what the entry itself is, links not followed; `not_found` when it is gone. Raises
/// `std::filesystem::filesystem_error`, operation "directory_entry::symlink_status".
std::filesystem::file_type EntryTypeItself(const std::filesystem::path& entry);

/// Returns what the entry is with links followed; `not_found` when it or its target is gone. Raises
/// `std::filesystem::filesystem_error`, operation "directory_entry::status".
std::filesystem::file_type EntryTypeFollowed(const std::filesystem::path& entry);

}  // namespace updater
