#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "fixtures/file_content.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "snapshot/doubles.h"
#include "snapshot/operation_trace.h"
#include "snapshot/program_assets.h"
#include "support/file_system.h"
#include "support/text_conversion.h"

namespace updater {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

constexpr char kLinkAtTopLevel[] = "Reparse points are not supported in installation directory";
constexpr char kLinkInData[] = "Reparse points are not supported in program assets";

struct RefusedEntry {
    const wchar_t* path;
    const char* message;
};

// Every kind of entry: asset or not, file or directory, at the top level or below "data".
constexpr RefusedEntry kEntries[] = {
    {L"corvellan.exe", kLinkAtTopLevel},
    {L"config.ini", kLinkAtTopLevel},
    {L"logs", kLinkAtTopLevel},
    {L"data", kLinkAtTopLevel},
    {L"data\\app.so", kLinkInData},
    {L"data\\sub", kLinkInData},
    {L"data\\sub\\deep.bin", kLinkInData},
};

struct ProgramAssetsFailure : testing::Test {
    ProgramAssetsFailure() {
        for (const wchar_t* file : {L"corvellan.exe", L"config.ini", L"logs\\today.txt",
                                    L"data\\app.so", L"data\\sub\\deep.bin"}) {
            WriteFileContent(directory.path / file, "content");
        }
    }

    ProgramAssets Enumerate() const { return EnumerateProgramAssets(directory.path); }

    void ExpectRefused(const char* message) const {
        EXPECT_THAT([this] { Enumerate(); }, RaisesError(message));
    }

    TemporaryDirectory directory;
};

const ProgramAssets kAllAssets = {L"corvellan.exe", L"data\\app.so", L"data\\sub\\deep.bin"};

bool Is(LPCWSTR path, const std::filesystem::path& expected) {
    return std::wstring_view(path) == expected.native();
}

// The attributes of one path, as they become under the given function; the real ones elsewhere.
template <typename Change>
std::function<decltype(GetFileAttributesW)> AttributesOf(const std::filesystem::path& entry,
                                                         Change change) {
    return [entry, change](LPCWSTR path) {
        const DWORD attributes = GetFileAttributesW(path);
        return Is(path, entry) ? change(attributes) : attributes;
    };
}

// Fails the type query of one path from its `first` call on, which counts from 1.
std::function<decltype(GetFileAttributesExW)> TypeQueryFailing(const std::filesystem::path& entry,
                                                               int first, DWORD error) {
    return [entry, first, error, calls = 0](LPCWSTR path, GET_FILEEX_INFO_LEVELS level,
                                            LPVOID data) mutable {
        if (Is(path, entry) && ++calls >= first) {
            return FailWith(error);
        }
        return GetFileAttributesExW(path, level, data);
    };
}

// Reports one path, which is a plain file or directory, as a reparse point with this tag.
struct ScopedReparsePoint {
    ScopedReparsePoint(const std::filesystem::path& entry, DWORD tag)
        : typeQuery(getFileAttributesEx,
                    [entry](LPCWSTR path, GET_FILEEX_INFO_LEVELS level, LPVOID data) {
                        const BOOL known = GetFileAttributesExW(path, level, data);
                        if (known && Is(path, entry)) {
                            static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(data)->dwFileAttributes |=
                                FILE_ATTRIBUTE_REPARSE_POINT;
                        }
                        return known;
                    }),
          tagQuery(getFileInformation, [tag](HANDLE, FILE_INFO_BY_HANDLE_CLASS kind, LPVOID data,
                                             DWORD) {
              if (kind != FileAttributeTagInfo) {
                  return FailWith(ERROR_INVALID_PARAMETER);
              }
              *static_cast<FILE_ATTRIBUTE_TAG_INFO*>(data) = {FILE_ATTRIBUTE_REPARSE_POINT, tag};
              return TRUE;
          }) {}

    ScopedReplacement<decltype(GetFileAttributesExW)> typeQuery;
    ScopedReplacement<decltype(GetFileInformationByHandleEx)> tagQuery;
};

TEST_F(ProgramAssetsFailure, RefusesAnEntryWithTheReparseAttribute) {
    for (const auto& [path, message] : kEntries) {
        SCOPED_TRACE(WideToUtf8(path));
        const ScopedReplacement attributes(getFileAttributes,
                                           AttributesOf(directory.path / path, [](DWORD real) {
                                               return real | FILE_ATTRIBUTE_REPARSE_POINT;
                                           }));
        ExpectRefused(message);
    }
    EXPECT_EQ(Enumerate(), kAllAssets);
}

TEST_F(ProgramAssetsFailure, RefusesAnEntryWhoseAttributesCannotBeRead) {
    for (const auto& [path, message] : kEntries) {
        SCOPED_TRACE(WideToUtf8(path));
        const ScopedReplacement attributes(
            getFileAttributes,
            AttributesOf(directory.path / path, [](DWORD) { return INVALID_FILE_ATTRIBUTES; }));
        ExpectRefused(message);
    }
}

TEST_F(ProgramAssetsFailure, LooksAtNoOtherAttribute) {
    for (const auto& [path, message] : kEntries) {
        SCOPED_TRACE(WideToUtf8(path));
        const ScopedReplacement attributes(getFileAttributes,
                                           AttributesOf(directory.path / path, [](DWORD) {
                                               return ~DWORD{FILE_ATTRIBUTE_REPARSE_POINT};
                                           }));
        EXPECT_EQ(Enumerate(), kAllAssets);
    }
}

// The attribute query denies it, so the entry's own type alone decides.
TEST_F(ProgramAssetsFailure, RefusesAnEntryThatIsASymbolicLinkByItsType) {
    for (const auto& [path, message] : kEntries) {
        SCOPED_TRACE(WideToUtf8(path));
        [[maybe_unused]] const ScopedReparsePoint link(directory.path / path,
                                                       IO_REPARSE_TAG_SYMLINK);
        ExpectRefused(message);
    }
}

// A junction is no symbolic link by its type; the attribute gives it away.
TEST_F(ProgramAssetsFailure, RefusesAReparsePointThatIsNoSymbolicLink) {
    for (const DWORD tag : {DWORD{IO_REPARSE_TAG_MOUNT_POINT}, DWORD{0x9000'001A}}) {
        for (const auto& [path, message] : kEntries) {
            SCOPED_TRACE(WideToUtf8(path));
            const ScopedReparsePoint junction(directory.path / path, tag);
            const ScopedReplacement attributes(getFileAttributes,
                                               AttributesOf(directory.path / path, [](DWORD real) {
                                                   return real | FILE_ATTRIBUTE_REPARSE_POINT;
                                               }));
            ExpectRefused(message);
        }
    }
}

TEST_F(ProgramAssetsFailure, RefusesAFileThatVanishesAfterItWasListed) {
    for (const auto& [path, message] :
         {RefusedEntry{L"config.ini", kLinkAtTopLevel}, {L"data\\sub\\deep.bin", kLinkInData}}) {
        const std::filesystem::path entry = directory.path / path;
        const ScopedReplacement<decltype(GetFileAttributesExW)> typeQuery(
            getFileAttributesEx,
            [&entry](LPCWSTR queried, GET_FILEEX_INFO_LEVELS level, LPVOID data) {
                if (Is(queried, entry)) {
                    DeleteFileW(entry.c_str());
                }
                return GetFileAttributesExW(queried, level, data);
            });
        ExpectRefused(message);
        EXPECT_FALSE(PathExists(entry));
        WriteFileContent(entry, "content");
    }
}

TEST_F(ProgramAssetsFailure, DoesNotHoldAFileThatVanishesBeforeItsTypeIsAsked) {
    const ScopedReplacement typeQuery(
        getFileAttributesEx,
        TypeQueryFailing(directory.path / L"data\\app.so", 2, ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(Enumerate(), (ProgramAssets{L"corvellan.exe", L"data\\sub\\deep.bin"}));
}

TEST_F(ProgramAssetsFailure, AsksForEveryEntrysAttributesByItsFullPath) {
    std::vector<std::wstring> asked;
    const ScopedReplacement<decltype(GetFileAttributesW)> attributes(
        getFileAttributes, [&asked](LPCWSTR path) {
            asked.emplace_back(path);
            return GetFileAttributesW(path);
        });
    Enumerate();
    const std::wstring root = directory.path.native() + L'\\';
    EXPECT_THAT(asked, UnorderedElementsAre(root + L"corvellan.exe", root + L"config.ini",
                                            root + L"logs", root + L"data", root + L"data\\app.so",
                                            root + L"data\\sub", root + L"data\\sub\\deep.bin"));
}

TEST_F(ProgramAssetsFailure, ListsNothingBehindARefusedDirectory) {
    const OperationTrace trace(directory.path);
    const ScopedReplacement attributes(getFileAttributes,
                                       AttributesOf(directory.path / L"data\\sub", [](DWORD real) {
                                           return real | FILE_ATTRIBUTE_REPARSE_POINT;
                                       }));
    ExpectRefused(kLinkInData);
    EXPECT_THAT(trace.operations, ElementsAre(L"list *", L"list data\\*"));
}

TEST_F(ProgramAssetsFailure, NamesTheOperationWhenAnEntrysOwnTypeCannotBeRead) {
    for (const auto& [path, message] : kEntries) {
        SCOPED_TRACE(WideToUtf8(path));
        const std::filesystem::path entry = directory.path / path;
        const ScopedReplacement typeQuery(getFileAttributesEx,
                                          TypeQueryFailing(entry, 1, ERROR_ACCESS_DENIED));
        // The type is asked for before the attributes, whose failure is another one.
        const ScopedReplacement attributes(
            getFileAttributes, AttributesOf(entry, [](DWORD) { return INVALID_FILE_ATTRIBUTES; }));
        EXPECT_THAT([this] { Enumerate(); },
                    RaisesFileSystemError("directory_entry::symlink_status", entry));
    }
}

TEST_F(ProgramAssetsFailure, NamesTheOperationWhenAnEntrysFollowedTypeCannotBeRead) {
    for (const auto& [path, message] : kEntries) {
        SCOPED_TRACE(WideToUtf8(path));
        const std::filesystem::path entry = directory.path / path;
        const ScopedReplacement typeQuery(getFileAttributesEx,
                                          TypeQueryFailing(entry, 2, ERROR_ACCESS_DENIED));
        EXPECT_THAT([this] { Enumerate(); },
                    RaisesFileSystemError("directory_entry::status", entry));
    }
}

TEST_F(ProgramAssetsFailure, NamesTheOperationWhenTheDataTreesExistenceIsUnknown) {
    RemoveTree(directory.path / L"data");
    const std::filesystem::path data = directory.path / L"data";
    for (const DWORD error : {ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_NOT_READY}) {
        const ScopedReplacement typeQuery(getFileAttributesEx, TypeQueryFailing(data, 1, error));
        EXPECT_THAT([this] { Enumerate(); }, RaisesFileSystemError("exists", data));
    }
    for (const DWORD error : {ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND}) {
        const ScopedReplacement typeQuery(getFileAttributesEx, TypeQueryFailing(data, 1, error));
        EXPECT_EQ(Enumerate(), ProgramAssets{L"corvellan.exe"});
    }
}

// Fails the listing of one directory, at its opening or at its first step, and counts the searches
// that are open.
struct ListingFailure {
    enum class At { Opening, FirstStep, Never };

    ListingFailure(const std::filesystem::path& directory, At place, DWORD failure)
        : pattern(directory / L"*"), at(place), error(failure) {}

    std::filesystem::path pattern;
    At at;
    DWORD error;
    HANDLE failing = nullptr;
    int openSearches = 0;
    int searches = 0;

    ScopedReplacement<decltype(FindFirstFileExW)> opening{
        findFirstFile, [this](LPCWSTR listed, FINDEX_INFO_LEVELS level, LPVOID data,
                              FINDEX_SEARCH_OPS operation, LPVOID filter, DWORD flags) {
            if (at == At::Opening && Is(listed, pattern)) {
                SetLastError(error);
                return INVALID_HANDLE_VALUE;
            }
            const HANDLE search = FindFirstFileExW(listed, level, data, operation, filter, flags);
            if (Is(listed, pattern)) {
                failing = search;
            }
            openSearches += search != INVALID_HANDLE_VALUE ? 1 : 0;
            searches += 1;
            return search;
        }};
    ScopedReplacement<decltype(FindNextFileW)> stepping{
        findNextFile, [this](HANDLE search, LPWIN32_FIND_DATAW data) {
            return at == At::FirstStep && search == failing ? FailWith(error)
                                                            : FindNextFileW(search, data);
        }};
    ScopedReplacement<decltype(FindClose)> closing{findClose, [this](HANDLE search) {
                                                       openSearches -= 1;
                                                       return FindClose(search);
                                                   }};
};

TEST_F(ProgramAssetsFailure, NamesTheOperationAtWhichAListingFails) {
    using At = ListingFailure::At;
    const struct {
        const wchar_t* directory;
        At at;
        const char* operation;
    } cases[] = {
        {L".", At::Opening, "directory_iterator::directory_iterator"},
        {L".", At::FirstStep, "directory_iterator::operator++"},
        {L"data", At::Opening, "recursive_directory_iterator::recursive_directory_iterator"},
        {L"data", At::FirstStep, "recursive_directory_iterator::operator++"},
        {L"data\\sub", At::Opening, "recursive_directory_iterator::operator++"},
        {L"data\\sub", At::FirstStep, "recursive_directory_iterator::operator++"},
    };
    for (const auto& [name, at, operation] : cases) {
        for (const DWORD error : {ERROR_ACCESS_DENIED, ERROR_NETNAME_DELETED}) {
            SCOPED_TRACE(WideToUtf8(name) + " " + operation);
            const std::filesystem::path listed =
                name == std::wstring_view(L".") ? directory.path : directory.path / name;
            const ListingFailure failure(listed, at, error);
            EXPECT_THAT([this] { Enumerate(); }, RaisesFileSystemError(operation));
            EXPECT_EQ(failure.openSearches, 0);
        }
    }
}

TEST_F(ProgramAssetsFailure, NamesTheDirectoryThatCannotBeOpened) {
    for (const auto& [name, operation] :
         {std::pair(L"", "directory_iterator::directory_iterator"),
          std::pair(L"\\data", "recursive_directory_iterator::recursive_directory_iterator")}) {
        const std::filesystem::path listed = directory.path.native() + name;
        const ListingFailure failure(listed, ListingFailure::At::Opening, ERROR_ACCESS_DENIED);
        EXPECT_THAT([this] { Enumerate(); }, RaisesFileSystemError(operation, listed));
    }
}

TEST_F(ProgramAssetsFailure, ClosesEverySearch) {
    const ListingFailure none(directory.path, ListingFailure::At::Never, 0);
    EXPECT_EQ(Enumerate(), kAllAssets);
    EXPECT_EQ(none.openSearches, 0);
    EXPECT_EQ(none.searches, 3);

    const ScopedReplacement attributes(getFileAttributes,
                                       AttributesOf(directory.path / L"data\\sub\\deep.bin",
                                                    [](DWORD) { return INVALID_FILE_ATTRIBUTES; }));
    ExpectRefused(kLinkInData);
    EXPECT_EQ(none.openSearches, 0);
    EXPECT_EQ(none.searches, 6);
}

}  // namespace
}  // namespace updater
