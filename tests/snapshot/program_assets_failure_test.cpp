#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "fixtures/application_names.h"
#include "fixtures/doubles/updater_doubles.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
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
    {kExecutableName, kLinkAtTopLevel},
    {L"config.ini", kLinkAtTopLevel},
    {L"logs", kLinkAtTopLevel},
    {L"data", kLinkAtTopLevel},
    {L"data\\app.so", kLinkInData},
    {L"data\\sub", kLinkInData},
    {L"data\\sub\\deep.bin", kLinkInData},
};

struct ProgramAssetsFailure : testing::Test {
    ProgramAssetsFailure() {
        for (const wchar_t* file : {kExecutableName, L"config.ini", L"logs\\today.txt",
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

const ProgramAssets kAllAssets = {kExecutableName, L"data\\app.so", L"data\\sub\\deep.bin"};

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

// Lists one entry, which is a plain file or directory, as a reparse point with this tag. No two
// entries of the tests have the same name.
struct ScopedReparsePoint {
    ScopedReparsePoint(const std::filesystem::path& entry, DWORD reparseTag)
        : name(entry.filename()), tag(reparseTag) {}

    void Change(LPVOID data) const {
        auto& listed = *static_cast<WIN32_FIND_DATAW*>(data);
        if (listed.cFileName == name) {
            listed.dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
            listed.dwReserved0 = tag;
        }
    }

    std::wstring name;
    DWORD tag;
    ScopedReplacement<decltype(FindFirstFileExW)> opening{
        doubles::FindFirstFileExW, [this](LPCWSTR pattern, FINDEX_INFO_LEVELS level, LPVOID data,
                                          FINDEX_SEARCH_OPS operation, LPVOID filter, DWORD flags) {
            const HANDLE search = FindFirstFileExW(pattern, level, data, operation, filter, flags);
            Change(data);
            return search;
        }};
    ScopedReplacement<decltype(FindNextFileW)> stepping{
        doubles::FindNextFileW, [this](HANDLE search, LPWIN32_FIND_DATAW data) {
            const BOOL found = FindNextFileW(search, data);
            Change(data);
            return found;
        }};
};

TEST_F(ProgramAssetsFailure, RefusesAnEntryWithTheReparseAttribute) {
    for (const auto& [path, message] : kEntries) {
        SCOPED_TRACE(WideToUtf8(path));
        const ScopedReplacement attributes(doubles::GetFileAttributesW,
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
            doubles::GetFileAttributesW,
            AttributesOf(directory.path / path, [](DWORD) { return INVALID_FILE_ATTRIBUTES; }));
        ExpectRefused(message);
    }
}

TEST_F(ProgramAssetsFailure, LooksAtNoOtherAttribute) {
    for (const auto& [path, message] : kEntries) {
        SCOPED_TRACE(WideToUtf8(path));
        const ScopedReplacement attributes(doubles::GetFileAttributesW,
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
            const ScopedReplacement attributes(doubles::GetFileAttributesW,
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
        const ScopedReplacement attributes(doubles::GetFileAttributesW, [&entry](LPCWSTR queried) {
            if (Is(queried, entry)) {
                DeleteFileW(entry.c_str());
            }
            return GetFileAttributesW(queried);
        });
        ExpectRefused(message);
        EXPECT_FALSE(PathExists(entry));
        WriteFileContent(entry, "content");
    }
}

// The listing has shown a file's kind, and nothing but its attributes is asked.
TEST_F(ProgramAssetsFailure, AsksForNoTypeOfWhatIsNoReparsePoint) {
    std::vector<std::wstring> asked;
    const ScopedReplacement typeQuery(
        doubles::GetFileAttributesExW,
        [&asked](LPCWSTR path, GET_FILEEX_INFO_LEVELS level, LPVOID data) {
            asked.emplace_back(path);
            return GetFileAttributesExW(path, level, data);
        });
    EXPECT_EQ(Enumerate(), kAllAssets);
    EXPECT_THAT(asked, ElementsAre(directory.path.native() + L"\\data")) << "whether it exists";
}

// The attribute query tells that it is one no longer.
TEST_F(ProgramAssetsFailure, AsksAgainForTheTypeOfAFormerReparsePoint) {
    for (const auto& [path, message] : kEntries) {
        SCOPED_TRACE(WideToUtf8(path));
        const std::filesystem::path entry = directory.path / path;
        const ScopedReparsePoint former(entry, IO_REPARSE_TAG_MOUNT_POINT);
        {
            const ScopedReplacement typeQuery(doubles::GetFileAttributesExW,
                                              TypeQueryFailing(entry, 1, ERROR_ACCESS_DENIED));
            EXPECT_THAT([this] { Enumerate(); },
                        RaisesFileSystemError("directory_entry::status", entry));
        }
        const ProgramAssets assets = Enumerate();
        EXPECT_EQ(assets.contains(path), kAllAssets.contains(path));
        const ScopedReplacement typeQuery(doubles::GetFileAttributesExW,
                                          TypeQueryFailing(entry, 1, ERROR_FILE_NOT_FOUND));
        EXPECT_FALSE(Enumerate().contains(path));
    }
}

TEST_F(ProgramAssetsFailure, AsksForEveryEntrysAttributesByItsFullPath) {
    std::vector<std::wstring> asked;
    const ScopedReplacement attributes(doubles::GetFileAttributesW, [&asked](LPCWSTR path) {
        asked.emplace_back(path);
        return GetFileAttributesW(path);
    });
    Enumerate();
    const std::wstring root = directory.path.native() + L'\\';
    EXPECT_THAT(asked, UnorderedElementsAre(root + kExecutableName, root + L"config.ini",
                                            root + L"logs", root + L"data", root + L"data\\app.so",
                                            root + L"data\\sub", root + L"data\\sub\\deep.bin"));
}

TEST_F(ProgramAssetsFailure, ListsNothingBehindARefusedDirectory) {
    const OperationTrace trace(directory.path);
    const ScopedReplacement attributes(doubles::GetFileAttributesW,
                                       AttributesOf(directory.path / L"data\\sub", [](DWORD real) {
                                           return real | FILE_ATTRIBUTE_REPARSE_POINT;
                                       }));
    ExpectRefused(kLinkInData);
    EXPECT_THAT(trace.operations, ElementsAre(L"list *", L"list data\\*"));
}

TEST_F(ProgramAssetsFailure, NamesTheOperationWhenTheDataTreesExistenceIsUnknown) {
    RemoveTree(directory.path / L"data");
    const std::filesystem::path data = directory.path / L"data";
    for (const DWORD error : {ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_NOT_READY}) {
        const ScopedReplacement typeQuery(doubles::GetFileAttributesExW,
                                          TypeQueryFailing(data, 1, error));
        EXPECT_THAT([this] { Enumerate(); }, RaisesFileSystemError("exists", data));
    }
    for (const DWORD error : {ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND}) {
        const ScopedReplacement typeQuery(doubles::GetFileAttributesExW,
                                          TypeQueryFailing(data, 1, error));
        EXPECT_EQ(Enumerate(), ProgramAssets{kExecutableName});
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
        doubles::FindFirstFileExW, [this](LPCWSTR listed, FINDEX_INFO_LEVELS level, LPVOID data,
                                          FINDEX_SEARCH_OPS operation, LPVOID filter, DWORD flags) {
            if (at == At::Opening && Is(listed, pattern)) {
                return FailWith(error, INVALID_HANDLE_VALUE);
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
        doubles::FindNextFileW, [this](HANDLE search, LPWIN32_FIND_DATAW data) {
            return at == At::FirstStep && search == failing ? FailWith(error)
                                                            : FindNextFileW(search, data);
        }};
    ScopedReplacement<decltype(FindClose)> closing{doubles::FindClose, [this](HANDLE search) {
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

    const ScopedReplacement attributes(doubles::GetFileAttributesW,
                                       AttributesOf(directory.path / L"data\\sub\\deep.bin",
                                                    [](DWORD) { return INVALID_FILE_ATTRIBUTES; }));
    ExpectRefused(kLinkInData);
    EXPECT_EQ(none.openSearches, 0);
    EXPECT_EQ(none.searches, 6);
}

}  // namespace
}  // namespace updater
