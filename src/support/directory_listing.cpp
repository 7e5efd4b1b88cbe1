#include "support/directory_listing.h"

#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "support/file_system_error.h"
#include "support/file_type.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr ListingOperations kDirectoryOperations = {"directory_iterator::directory_iterator",
                                                    "directory_iterator::operator++"};

struct SearchCloser {
    using pointer = HANDLE;
    void operator()(HANDLE search) const noexcept { FindClose(search); }
};
using UniqueSearch = std::unique_ptr<void, SearchCloser>;

// One directory being listed. `entry` is the entry that the search stands at; without a search the
// listing is at its end.
struct Listing {
    std::filesystem::path relativePath;
    UniqueSearch search;
    WIN32_FIND_DATAW entry;
};

bool IsDotEntry(const WIN32_FIND_DATAW& entry) {
    const std::wstring_view name = entry.cFileName;
    return name == L"." || name == L"..";
}

bool IsPlainDirectory(const WIN32_FIND_DATAW& entry) {
    constexpr DWORD kKind = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
    return (entry.dwFileAttributes & kKind) == FILE_ATTRIBUTE_DIRECTORY;
}

void Advance(Listing& listing, const std::filesystem::path& directory, const char* operation) {
    do {
        if (FindNextFileW(listing.search.get(), &listing.entry) == 0) {
            const DWORD error = GetLastError();
            if (error != ERROR_NO_MORE_FILES) {
                RaiseFileSystemError(operation, error, directory);
            }
            listing.search.reset();
            return;
        }
    } while (IsDotEntry(listing.entry));
}

Listing OpenListing(const std::filesystem::path& directory, std::filesystem::path relativePath,
                    const ListingOperations& operations) {
    // A pattern without a directory before it would list the current directory.
    if (directory.empty()) {
        RaiseFileSystemError(operations.open, ERROR_PATH_NOT_FOUND, directory);
    }
    Listing listing{std::move(relativePath), nullptr, {}};
    HANDLE search = FindFirstFileExW((directory / L"*").c_str(), FindExInfoBasic, &listing.entry,
                                     FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH);
    if (search == INVALID_HANDLE_VALUE) {
        RaiseFileSystemError(operations.open, GetLastError(), directory);
    }
    listing.search.reset(search);
    if (IsDotEntry(listing.entry)) {
        Advance(listing, directory, operations.advance);
    }
    return listing;
}

}  // namespace

void VisitDirectory(const std::filesystem::path& directory, const EntryVisitor& visit) {
    Listing listing = OpenListing(directory, {}, kDirectoryOperations);
    while (listing.search) {
        visit(listing.entry.cFileName);
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
                Advance(open.back(), directory / open.back().relativePath, operations.advance);
            }
            continue;
        }
        const std::filesystem::path relativePath =
            open.back().relativePath / open.back().entry.cFileName;
        const bool descend = IsPlainDirectory(open.back().entry);
        visit(relativePath);
        if (descend) {
            open.push_back(OpenListing(directory / relativePath, relativePath,
                                       {operations.advance, operations.advance}));
        } else {
            Advance(open.back(), directory / open.back().relativePath, operations.advance);
        }
    }
}

std::filesystem::file_type EntryTypeItself(const std::filesystem::path& entry) {
    return QueryFileType(entry, Links::NotFollowed, "directory_entry::symlink_status");
}

std::filesystem::file_type EntryTypeFollowed(const std::filesystem::path& entry) {
    return QueryFileType(entry, Links::Followed, "directory_entry::status");
}

}  // namespace updater
