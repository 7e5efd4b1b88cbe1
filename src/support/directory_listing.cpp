#include "support/directory_listing.h"

#include <memory>
#include <string_view>
#include <vector>

#include "support/file_system_error.h"
#include "support/windows_api.h"

namespace updater {

namespace {

using std::filesystem::file_type;

constexpr ListingOperations kDirectoryOperations = {"directory_iterator::directory_iterator",
                                                    "directory_iterator::operator++"};

struct SearchCloser {
    using pointer = HANDLE;
    void operator()(HANDLE search) const noexcept { FindClose(search); }
};
using UniqueSearch = std::unique_ptr<void, SearchCloser>;

// One directory being listed, by its path in the directory that the visit began with. `entry` is
// the entry that the search stands at; without a search the listing is at its end.
struct Listing {
    std::filesystem::path relativePath;
    UniqueSearch search;
    WIN32_FIND_DATAW entry;
};

bool IsDotEntry(const WIN32_FIND_DATAW& entry) {
    const std::wstring_view name = entry.cFileName;
    return name == L"." || name == L"..";
}

file_type TypeOf(const WIN32_FIND_DATAW& entry) {
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        // The field holds a reparse point's tag, and of other entries nothing.
        const DWORD tag = entry.dwReserved0;
        return tag == IO_REPARSE_TAG_SYMLINK ? file_type::symlink : file_type::unknown;
    }
    return (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? file_type::directory
                                                                    : file_type::regular;
}

std::filesystem::path FullPath(const std::filesystem::path& root,
                               const std::filesystem::path& relativePath) {
    return relativePath.empty() ? root : root / relativePath;
}

void Advance(Listing& listing, const std::filesystem::path& root, const char* operation) {
    do {
        if (FindNextFileW(listing.search.get(), &listing.entry) == 0) {
            const DWORD error = GetLastError();
            if (error != ERROR_NO_MORE_FILES) {
                RaiseFileSystemError(operation, error, FullPath(root, listing.relativePath));
            }
            listing.search.reset();
            return;
        }
    } while (IsDotEntry(listing.entry));
}

Listing OpenListing(const std::filesystem::path& root, const std::filesystem::path& relativePath,
                    const ListingOperations& operations) {
    // A pattern without a directory before it would list the current directory.
    if (root.empty()) {
        RaiseFileSystemError(operations.open, ERROR_PATH_NOT_FOUND, root);
    }
    Listing listing{relativePath, nullptr, {}};
    const std::filesystem::path directory = FullPath(root, relativePath);
    HANDLE search = FindFirstFileExW((directory / L"*").c_str(), FindExInfoBasic, &listing.entry,
                                     FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH);
    if (search == INVALID_HANDLE_VALUE) {
        RaiseFileSystemError(operations.open, GetLastError(), directory);
    }
    listing.search.reset(search);
    if (IsDotEntry(listing.entry)) {
        Advance(listing, root, operations.advance);
    }
    return listing;
}

}  // namespace

void VisitDirectory(const std::filesystem::path& directory, const EntryVisitor& visit) {
    Listing listing = OpenListing(directory, {}, kDirectoryOperations);
    while (listing.search) {
        visit({listing.entry.cFileName, TypeOf(listing.entry)});
        Advance(listing, directory, kDirectoryOperations.advance);
    }
}

void VisitTree(const std::filesystem::path& directory, const EntryVisitor& visit,
               const ListingOperations& operations) {
    // A stack on the heap, so that no depth of directories can exhaust the thread's stack.
    std::vector<Listing> open;
    open.push_back(OpenListing(directory, {}, operations));
    while (!open.empty()) {
        if (!open.back().search) {
            open.pop_back();
            if (!open.empty()) {
                Advance(open.back(), directory, operations.advance);
            }
            continue;
        }
        const ListedEntry entry = {open.back().relativePath / open.back().entry.cFileName,
                                   TypeOf(open.back().entry)};
        visit(entry);
        if (entry.type == file_type::directory) {
            open.push_back(OpenListing(directory, entry.relativePath,
                                       {operations.advance, operations.advance}));
        } else {
            Advance(open.back(), directory, operations.advance);
        }
    }
}

}  // namespace updater
