// File operations when the system refuses, or answers as Windows does where Wine does not: the
// system's functions are replaced at link time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "fixtures/directory_link.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/expect_file_system_error.h"
#include "fixtures/file_content.h"
#include "fixtures/open_handles.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "support/canonical_path.h"
#include "support/directory_listing.h"
#include "support/file_system.h"
#include "support/file_type.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

// Expects the error that ExpectFileSystemError does, twice, and as many handles open as before.
void ExpectFailure(const std::function<void()>& action, const char* operation, DWORD error,
                   const std::filesystem::path& path,
                   const std::filesystem::path& secondPath = {}) {
    ExpectNoHandleLeft([&] { ExpectFileSystemError(action, operation, error, path, secondPath); });
}

// Final-path and full-path calls answer like this: the length if the text fits, and otherwise what
// it needs with its terminating zero.
DWORD AnswerText(const std::wstring& text, wchar_t* buffer, DWORD units) {
    if (text.size() >= units) {
        return static_cast<DWORD>(text.size() + 1);
    }
    std::copy(text.c_str(), text.c_str() + text.size() + 1, buffer);
    return static_cast<DWORD>(text.size());
}

TEST(CanonicalPathFailure, ThePrefixOfTheFinalPathCallIsTakenOff) {
    struct FinalPathForm {
        std::wstring answer;
        std::wstring canonical;
    };
    const std::wstring longTail(32000, L'x');
    const std::vector<FinalPathForm> forms = {
        {L"\\\\?\\C:\\Program Files\\App", L"C:\\Program Files\\App"},
        {L"\\\\?\\C:\\", L"C:\\"},
        {L"\\\\?\\UNC\\server\\share\\App", L"\\\\server\\share\\App"},
        {L"\\\\?\\UNC\\server\\share\\", L"\\\\server\\share\\"},
        {L"C:\\x", L"C:\\x"},
        {L"\\\\?\\Volume{0A1B}\\x", L"\\\\?\\Volume{0A1B}\\x"},
        {L"\\\\?\\C:\\" + longTail, L"C:\\" + longTail},
        {L"\\\\?\\UNC\\server\\share\\" + longTail, L"\\\\server\\share\\" + longTail},
    };
    const TemporaryDirectory directory;
    for (const FinalPathForm& form : forms) {
        const ScopedReplacement answering(doubles::GetFinalPathNameByHandleW,
                                          [&form](HANDLE, LPWSTR buffer, DWORD units, DWORD flags) {
                                              EXPECT_EQ(flags, 0U)
                                                  << "normalised, with a drive letter";
                                              return AnswerText(form.answer, buffer, units);
                                          });
        EXPECT_EQ(CanonicalPath(directory.path).native(), form.canonical);
        EXPECT_EQ(WeaklyCanonicalPath(directory.path).native(), form.canonical);
        EXPECT_EQ(WeaklyCanonicalPath(directory.path / L"missing").native(),
                  (std::filesystem::path(form.canonical) / L"missing").native());
    }
}

TEST(CanonicalPathFailure, EveryLengthAroundTheBuffersIsAnsweredWhole) {
    const TemporaryDirectory directory;
    for (std::size_t length = 240; length < 300; ++length) {
        const std::wstring path = L"C:\\" + std::wstring(length, L'x');
        const ScopedReplacement answering(doubles::GetFinalPathNameByHandleW,
                                          [&path](HANDLE, LPWSTR buffer, DWORD units, DWORD) {
                                              return AnswerText(L"\\\\?\\" + path, buffer, units);
                                          });
        EXPECT_EQ(CanonicalPath(directory.path).native(), path);
    }
}

TEST(CanonicalPathFailure, ARefusalOfEitherCallIsAnError) {
    const TemporaryDirectory directory;
    {
        const ScopedReplacement refusing(
            doubles::CreateFileW,
            [](LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
                return FailWith(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE);
            });
        ExpectFailure([&] { CanonicalPath(directory.path); }, "canonical", ERROR_ACCESS_DENIED,
                      directory.path);
    }
    const ScopedReplacement refusing(
        doubles::GetFinalPathNameByHandleW,
        [](HANDLE, LPWSTR, DWORD, DWORD) { return FailWith(ERROR_INVALID_FUNCTION, DWORD{0}); });
    ExpectFailure([&] { CanonicalPath(directory.path); }, "canonical", ERROR_INVALID_FUNCTION,
                  directory.path);
    ExpectFailure([&] { WeaklyCanonicalPath(directory.path); }, "weakly_canonical",
                  ERROR_INVALID_FUNCTION, directory.path);
}

TEST(CanonicalPathFailure, OnlyTheAttributesAreOpenedAndEveryoneElseMayDoAnything) {
    const TemporaryDirectory directory;
    int opened = 0;
    const ScopedReplacement observed(
        doubles::CreateFileW,
        [&opened](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                  DWORD disposition, DWORD flags, HANDLE file) {
            ++opened;
            EXPECT_EQ(access, static_cast<DWORD>(FILE_READ_ATTRIBUTES));
            EXPECT_EQ(share,
                      static_cast<DWORD>(FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE));
            EXPECT_EQ(disposition, static_cast<DWORD>(OPEN_EXISTING));
            EXPECT_EQ(flags, static_cast<DWORD>(FILE_FLAG_BACKUP_SEMANTICS))
                << "directories too, links followed";
            return CreateFileW(path, access, share, security, disposition, flags, file);
        });
    CanonicalPath(directory.path);
    EXPECT_EQ(opened, 1);
}

TEST(FileTypeFailure, OfALinkIsAskedWhileEveryoneElseMayDoAnythingWithItsTarget) {
    const TemporaryDirectory directory;
    const DirectoryLink link(directory.path / L"link", directory.path);
    int opened = 0;
    const ScopedReplacement observed(
        doubles::CreateFileW,
        [&opened](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                  DWORD disposition, DWORD flags, HANDLE file) {
            ++opened;
            EXPECT_EQ(access, static_cast<DWORD>(FILE_READ_ATTRIBUTES));
            EXPECT_EQ(share,
                      static_cast<DWORD>(FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE));
            EXPECT_EQ(flags, static_cast<DWORD>(FILE_FLAG_BACKUP_SEMANTICS))
                << "directories too, links followed";
            return CreateFileW(path, access, share, security, disposition, flags, file);
        });
    EXPECT_EQ(QueryFileType(link.link, "o"), std::filesystem::file_type::directory);
    EXPECT_EQ(opened, 1);
}

TEST(WeaklyCanonicalPathFailure, WhatCannotBeFoundGoesOnWithTheParent) {
    struct NotFoundCase {
        std::wstring path;
        DWORD error;
        std::wstring canonical;
        /// What is tried last: anything shorter is no path.
        std::wstring root;
    };
    const std::vector<NotFoundCase> cases = {
        {L"\\\\server\\share\\a\\..\\b", ERROR_BAD_NETPATH, L"\\\\server\\share\\b",
         L"\\\\server\\share\\"},
        {L"\\\\server\\share\\a\\b", ERROR_BAD_NET_NAME, L"\\\\server\\share\\a\\b",
         L"\\\\server\\share\\"},
        {L"\\\\server\\share", ERROR_BAD_NETPATH, L"\\\\server\\share", L"\\\\server\\share"},
        {L"\\\\server", ERROR_INVALID_NAME, L"\\\\server", L"\\\\server"},
        {L"\\\\.\\NoSuchDevice\\a", ERROR_FILE_NOT_FOUND, L"\\\\.\\NoSuchDevice\\a",
         L"\\\\.\\NoSuchDevice\\"},
        {L"\\\\?\\Volume{0A1B}\\a\\b", ERROR_PATH_NOT_FOUND, L"\\\\?\\Volume{0A1B}\\a\\b",
         L"\\\\?\\Volume{0A1B}\\"},
        {L"C:\\a\\.\\b\\..\\c", ERROR_PATH_NOT_FOUND, L"C:\\a\\c", L"C:\\"},
    };
    for (const NotFoundCase& notFound : cases) {
        const std::wstring& canonical = notFound.canonical;
        std::vector<std::wstring> tried;
        const ScopedReplacement refusing(
            doubles::CreateFileW,
            [&](LPCWSTR name, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
                tried.emplace_back(name);
                return FailWith(notFound.error, INVALID_HANDLE_VALUE);
            });
        EXPECT_EQ(WeaklyCanonicalPath(notFound.path).native(), canonical);
        ASSERT_FALSE(tried.empty());
        EXPECT_EQ(tried.front(), canonical);
        EXPECT_EQ(tried.back(), notFound.root);
        for (const std::wstring& name : tried) {
            EXPECT_TRUE(canonical.starts_with(name)) << WideToUtf8(name);
        }
    }
}

TEST(WeaklyCanonicalPathFailure, OtherErrorsAreRaisedAlsoFromTheMiddleOfThePath) {
    const TemporaryDirectory directory;
    const std::filesystem::path path = directory.path / L"\u7F3A\u5931" / L"x";
    for (const DWORD error :
         std::initializer_list<DWORD>{ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_NOT_READY,
                                      ERROR_CANT_RESOLVE_FILENAME, ERROR_LOGON_FAILURE}) {
        for (const std::filesystem::path& failing : {path, directory.path}) {
            const ScopedReplacement refusing(
                doubles::CreateFileW,
                [&](LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                    DWORD disposition, DWORD flags, HANDLE file) {
                    return failing == name ? FailWith(error, INVALID_HANDLE_VALUE)
                                           : CreateFileW(name, access, share, security, disposition,
                                                         flags, file);
                });
            ExpectFailure([&] { WeaklyCanonicalPath(path); }, "weakly_canonical", error, path);
        }
    }
}

TEST(WeaklyCanonicalPathFailure, APathThatCannotBeMadeAbsoluteIsAnError) {
    const ScopedReplacement refusing(doubles::GetFullPathNameW,
                                     [](LPCWSTR, DWORD, LPWSTR, LPWSTR*) {
                                         return FailWith(ERROR_FILENAME_EXCED_RANGE, DWORD{0});
                                     });
    ExpectFailure([] { WeaklyCanonicalPath(L"C:\\\u7A0B\u5E8F"); }, "weakly_canonical",
                  ERROR_FILENAME_EXCED_RANGE, L"C:\\\u7A0B\u5E8F");
}

struct CopyFilesFailure : testing::Test {
    CopyFilesFailure() {
        WriteFileContent(source, "new");
        WriteFileContent(target, "old");
    }

    TemporaryDirectory directory;
    std::filesystem::path source = directory.path / L"\u6E90";
    std::filesystem::path target = directory.path / L"\u76EE\u6807";
};

TEST_F(CopyFilesFailure, AFullDiskIsAnErrorOfBothPaths) {
    const ScopedReplacement refusing(
        doubles::CopyFileW, [](LPCWSTR, LPCWSTR, BOOL) { return FailWith(ERROR_DISK_FULL); });
    ExpectFailure([this] { CopyToNewFile(source, target); }, "copy_file", 112, source, target);
    ExpectFailure([this] { CopyOverFile(source, target); }, "copy_file", 112, source, target);
}

TEST_F(CopyFilesFailure, OnlyACopyToANewFileRefusesAnExistingOne) {
    std::vector<BOOL> refusals;
    const ScopedReplacement observed(doubles::CopyFileW,
                                     [&](LPCWSTR, LPCWSTR, BOOL refuseExisting) {
                                         refusals.push_back(refuseExisting);
                                         return TRUE;
                                     });
    CopyToNewFile(source, target);
    CopyOverFile(source, target);
    EXPECT_THAT(refusals, ElementsAre(TRUE, FALSE));
}

// Windows refuses to overwrite a file with one of these attributes; Wine does it.
TEST_F(CopyFilesFailure, AProtectedTargetIsReplaced) {
    const ScopedReplacement asOnWindows(
        doubles::CopyFileW, [](LPCWSTR from, LPCWSTR to, BOOL refuseExisting) {
            constexpr DWORD kProtected =
                FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
            return (GetFileAttributesW(to) & kProtected) != 0 ? FailWith(ERROR_ACCESS_DENIED)
                                                              : CopyFileW(from, to, refuseExisting);
        });
    for (const DWORD attributes : std::initializer_list<DWORD>{
             FILE_ATTRIBUTE_READONLY, FILE_ATTRIBUTE_HIDDEN, FILE_ATTRIBUTE_SYSTEM,
             FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM}) {
        WriteFileContent(target, "old");
        SetFileAttributesW(target.c_str(), attributes);
        EXPECT_NO_THROW(CopyOverFile(source, target)) << attributes;
        SetFileAttributesW(target.c_str(), FILE_ATTRIBUTE_NORMAL);
        EXPECT_EQ(ReadFileContent(target), "new") << attributes;
    }
}

TEST_F(CopyFilesFailure, ATargetThatStaysProtectedIsAnError) {
    SetFileAttributesW(target.c_str(), FILE_ATTRIBUTE_READONLY);
    int calls = 0;
    const ScopedReplacement refusing(doubles::CopyFileW, [&](LPCWSTR, LPCWSTR, BOOL) {
        ++calls;
        return FailWith(ERROR_ACCESS_DENIED);
    });
    {
        const ScopedReplacement unchanging(doubles::SetFileAttributesW, [](LPCWSTR, DWORD) {
            return FailWith(ERROR_WRITE_PROTECT);
        });
        ExpectFileSystemError([this] { CopyOverFile(source, target); }, "copy_file",
                              ERROR_ACCESS_DENIED, source, target);
        EXPECT_EQ(calls, 1);
    }
    ExpectFileSystemError([this] { CopyOverFile(source, target); }, "copy_file",
                          ERROR_ACCESS_DENIED, source, target);
    EXPECT_EQ(calls, 3) << "once more without the attribute, and no further";
}

TEST(FileSizeFailure, HasAHighHalf) {
    const ScopedReplacement answering(doubles::GetFileAttributesExW,
                                      [](LPCWSTR, GET_FILEEX_INFO_LEVELS, LPVOID data) {
                                          WIN32_FILE_ATTRIBUTE_DATA answer{};
                                          answer.nFileSizeHigh = 1;
                                          answer.nFileSizeLow = 0xFFFFFFFF;
                                          std::memcpy(data, &answer, sizeof(answer));
                                          return TRUE;
                                      });
    EXPECT_EQ(FileSize(L"C:\\x"), 0x1FFFFFFFFU);
}

TEST(FileTypeFailure, AQueryThatFailsForWhatExistsIsAnErrorOfItsOperation) {
    const ScopedReplacement refusing(
        doubles::GetFileAttributesExW,
        [](LPCWSTR, GET_FILEEX_INFO_LEVELS, LPVOID) { return FailWith(ERROR_ACCESS_DENIED); });
    const std::filesystem::path path = L"C:\\\u7A0B\u5E8F";
    ExpectFailure([&] { FileSize(path); }, "file_size", ERROR_ACCESS_DENIED, path);
    ExpectFailure([&] { PathExists(path); }, "exists", ERROR_ACCESS_DENIED, path);
    ExpectFailure([&] { QueryFileType(path, "o"); }, "o", ERROR_ACCESS_DENIED, path);
}

// A reparse point, as the attributes show it.
struct ReparsePoint : testing::Test {
    TemporaryDirectory directory;
    ScopedReplacement<decltype(GetFileAttributesExW)> attributes{
        doubles::GetFileAttributesExW, [](LPCWSTR, GET_FILEEX_INFO_LEVELS, LPVOID data) {
            WIN32_FILE_ATTRIBUTE_DATA answer{};
            answer.dwFileAttributes = FILE_ATTRIBUTE_REPARSE_POINT;
            std::memcpy(data, &answer, sizeof(answer));
            return TRUE;
        }};
};

TEST_F(ReparsePoint, WhoseTargetIsGoneIsNotFound) {
    EXPECT_FALSE(PathExists(directory.path / L"missing"));
}

TEST_F(ReparsePoint, ThatCannotBeOpenedOrQueriedIsAnError) {
    {
        const ScopedReplacement refusing(
            doubles::CreateFileW,
            [](LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
                return FailWith(ERROR_CANT_RESOLVE_FILENAME, INVALID_HANDLE_VALUE);
            });
        ExpectFailure([this] { PathExists(directory.path); }, "exists", ERROR_CANT_RESOLVE_FILENAME,
                      directory.path);
    }
    const ScopedReplacement refusing(doubles::GetFileInformationByHandleEx,
                                     [](HANDLE, FILE_INFO_BY_HANDLE_CLASS, LPVOID, DWORD) {
                                         return FailWith(ERROR_INVALID_PARAMETER);
                                     });
    ExpectFailure([this] { PathExists(directory.path); }, "exists", ERROR_INVALID_PARAMETER,
                  directory.path);
}

TEST(CreateDirectoriesFailure, ADirectoryThatCannotBeMadeIsAnErrorOfTheWholePath) {
    const TemporaryDirectory directory;
    const std::filesystem::path path = directory.path / L"\u7A0B\u5E8F" / L"x";
    const ScopedReplacement refusing(doubles::CreateDirectoryW, [](LPCWSTR, LPSECURITY_ATTRIBUTES) {
        return FailWith(ERROR_ACCESS_DENIED);
    });
    ExpectFailure([&] { CreateDirectories(path); }, "create_directories", ERROR_ACCESS_DENIED,
                  path);
}

TEST(CreateDirectoriesFailure, ADirectoryThatAnotherProcessMakesMeanwhileIsFine) {
    const TemporaryDirectory directory;
    const ScopedReplacement overtaken(doubles::CreateDirectoryW,
                                      [](LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
                                          CreateDirectoryW(path, security);
                                          return FailWith(ERROR_ALREADY_EXISTS);
                                      });
    EXPECT_NO_THROW(CreateDirectories(directory.path / L"a" / L"b"));
    EXPECT_TRUE(PathExists(directory.path / L"a" / L"b"));
}

TEST(RemoveFileFailure, AFileThatStaysProtectedIsAnError) {
    const TemporaryDirectory directory;
    const std::filesystem::path file = directory.path / L"\u6587\u4EF6";
    WriteFileContent(file, "");
    int calls = 0;
    const ScopedReplacement refusing(doubles::DeleteFileW, [&](LPCWSTR) {
        ++calls;
        return FailWith(ERROR_ACCESS_DENIED);
    });
    ExpectFileSystemError([&] { RemoveFile(file); }, "remove", ERROR_ACCESS_DENIED, file);
    EXPECT_EQ(calls, 1) << "no attribute was in the way";
    SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY);
    ExpectFileSystemError([&] { RemoveFile(file); }, "remove", ERROR_ACCESS_DENIED, file);
    EXPECT_EQ(calls, 3) << "once more without the attribute, and no further";
}

// Windows refuses to remove a read-only directory; Wine does it.
TEST(RemoveTreeFailure, ReadOnlyDirectoriesAreRemoved) {
    const ScopedReplacement asOnWindows(doubles::RemoveDirectoryW, [](LPCWSTR path) {
        return (GetFileAttributesW(path) & FILE_ATTRIBUTE_READONLY) != 0
                   ? FailWith(ERROR_ACCESS_DENIED)
                   : RemoveDirectoryW(path);
    });
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"tree" / L"folder" / L"file", "");
    // Wine keeps the attribute of a directory only together with another one.
    for (const wchar_t* path : {L"tree", L"tree\\folder"}) {
        SetFileAttributesW((directory.path / path).c_str(),
                           FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
    }
    RemoveTree(directory.path / L"tree");
    EXPECT_THAT(ReadTreeContent(directory.path), IsEmpty());
}

// Windows removes the link when it is asked to; Wine would remove what is behind it.
TEST(RemoveTreeFailure, LinksAreRemovedAndNeverFollowed) {
    const TemporaryDirectory directory;
    const std::filesystem::path target = directory.path / L"target";
    WriteFileContent(target / L"folder" / L"file", "kept");
    CreateDirectories(directory.path / L"tree" / L"folder");
    std::optional<DirectoryLink> inner(std::in_place,
                                       directory.path / L"tree" / L"folder" / L"link", target);
    std::optional<DirectoryLink> outer(std::in_place, directory.path / L"root link", target);
    const ScopedReplacement asOnWindows(doubles::RemoveDirectoryW, [&](LPCWSTR path) {
        std::optional<DirectoryLink>& link = outer && outer->link == path ? outer : inner;
        if (link && link->link == path) {
            link.reset();
            return TRUE;
        }
        return RemoveDirectoryW(path);
    });
    RemoveTree(directory.path / L"tree");
    EXPECT_FALSE(inner.has_value());
    RemoveTree(directory.path / L"root link");
    EXPECT_FALSE(outer.has_value());
    EXPECT_THAT(ReadTreeContent(directory.path),
                ElementsAre(Pair(L"target\\", ""), Pair(L"target\\folder\\", ""),
                            Pair(L"target\\folder\\file", "kept")));
}

TEST(RemoveTreeFailure, WhatOthersRemoveMeanwhileIsNoError) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"tree" / L"folder" / L"file", "");
    const ScopedReplacement overtaken(doubles::DeleteFileW, [](LPCWSTR path) {
        DeleteFileW(path);
        return FailWith(ERROR_FILE_NOT_FOUND);
    });
    const ScopedReplacement overtakenToo(doubles::RemoveDirectoryW, [](LPCWSTR path) {
        RemoveDirectoryW(path);
        return FailWith(ERROR_FILE_NOT_FOUND);
    });
    EXPECT_NO_THROW(RemoveTree(directory.path / L"tree"));
    EXPECT_THAT(ReadTreeContent(directory.path), IsEmpty());
}

TEST(RemoveTreeFailure, EveryFailureIsOneOfTheRemoval) {
    const TemporaryDirectory directory;
    const std::filesystem::path tree = directory.path / L"\u6811";
    WriteFileContent(tree / L"folder" / L"file", "");
    {
        const ScopedReplacement refusing(doubles::DeleteFileW,
                                         [](LPCWSTR) { return FailWith(ERROR_SHARING_VIOLATION); });
        ExpectFailure([&] { RemoveTree(tree); }, "remove_all", ERROR_SHARING_VIOLATION,
                      tree / L"folder" / L"file");
    }
    {
        const ScopedReplacement refusing(
            doubles::FindFirstFileExW,
            [&](LPCWSTR path, FINDEX_INFO_LEVELS level, LPVOID data, FINDEX_SEARCH_OPS operation,
                LPVOID filter, DWORD flags) {
                return (tree / L"folder" / L"*") == path
                           ? FailWith(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE)
                           : FindFirstFileExW(path, level, data, operation, filter, flags);
            });
        ExpectFailure([&] { RemoveTree(tree); }, "remove_all", ERROR_ACCESS_DENIED,
                      tree / L"folder");
    }
    const ScopedReplacement refusing(doubles::RemoveDirectoryW,
                                     [](LPCWSTR) { return FailWith(ERROR_DIR_NOT_EMPTY); });
    ExpectFailure([&] { RemoveTree(tree); }, "remove_all", ERROR_DIR_NOT_EMPTY, tree / L"folder");
}

// Counts the searches that are open.
struct DirectoryListingFailure : testing::Test {
    DirectoryListingFailure() { WriteFileContent(directory.path / L"\u5939" / L"file", ""); }
    ~DirectoryListingFailure() override { EXPECT_EQ(openSearches, 0); }

    HANDLE Open(LPCWSTR path, FINDEX_INFO_LEVELS level, LPVOID data, FINDEX_SEARCH_OPS operation,
                LPVOID filter, DWORD flags) {
        if (refused == path) {
            return FailWith(refusal, INVALID_HANDLE_VALUE);
        }
        const HANDLE search = FindFirstFileExW(path, level, data, operation, filter, flags);
        openSearches += search != INVALID_HANDLE_VALUE ? 1 : 0;
        return search;
    }

    TemporaryDirectory directory;
    std::filesystem::path folder = directory.path / L"\u5939";
    std::filesystem::path refused;
    DWORD refusal = ERROR_ACCESS_DENIED;
    int openSearches = 0;
    ScopedReplacement<decltype(FindFirstFileExW)> open{
        doubles::FindFirstFileExW, [this](auto... arguments) { return Open(arguments...); }};
    ScopedReplacement<decltype(FindClose)> close{doubles::FindClose, [this](HANDLE search) {
                                                     --openSearches;
                                                     return FindClose(search);
                                                 }};
};

void Ignore(const ListedEntry&) {}

TEST_F(DirectoryListingFailure, ADirectoryThatMayNotBeOpened) {
    refused = directory.path / L"*";
    ExpectFailure([this] { VisitDirectory(directory.path, Ignore); },
                  "directory_iterator::directory_iterator", ERROR_ACCESS_DENIED, directory.path);
    ExpectFailure([this] { VisitTree(directory.path, Ignore); },
                  "recursive_directory_iterator::recursive_directory_iterator", ERROR_ACCESS_DENIED,
                  directory.path);
}

TEST_F(DirectoryListingFailure, ASubdirectoryThatMayNotBeOpenedIsAnErrorOfTheAdvance) {
    refused = folder / L"*";
    EXPECT_NO_THROW(VisitDirectory(directory.path, Ignore));
    ExpectFailure([this] { VisitTree(directory.path, Ignore); },
                  "recursive_directory_iterator::operator++", ERROR_ACCESS_DENIED, folder);
}

TEST_F(DirectoryListingFailure, AnAdvanceThatFails) {
    int advances = 0;
    int failingAdvance = 0;
    const ScopedReplacement failing(
        doubles::FindNextFileW, [&](HANDLE search, LPWIN32_FIND_DATAW data) {
            const BOOL advanced = FindNextFileW(search, data);
            return ++advances == failingAdvance ? FailWith(ERROR_NETNAME_DELETED) : advanced;
        });
    VisitDirectory(directory.path, Ignore);
    failingAdvance = advances;
    ExpectFailure(
        [&] {
            advances = 0;
            VisitDirectory(directory.path, Ignore);
        },
        "directory_iterator::operator++", ERROR_NETNAME_DELETED, directory.path);

    advances = 0;
    failingAdvance = 0;
    VisitTree(directory.path, Ignore);
    const int allAdvances = advances;
    // The last advance is that of the directory itself, the one before it that of its folder.
    const std::vector<std::filesystem::path> failingDirectories = {folder, directory.path};
    for (const std::filesystem::path& failed : failingDirectories) {
        failingAdvance = failed == folder ? allAdvances - 1 : allAdvances;
        ExpectFailure(
            [&] {
                advances = 0;
                VisitTree(directory.path, Ignore);
            },
            "recursive_directory_iterator::operator++", ERROR_NETNAME_DELETED, failed);
    }
}

TEST_F(DirectoryListingFailure, NoFailureIsTheEndOfAListing) {
    for (const DWORD error :
         std::initializer_list<DWORD>{ERROR_ACCESS_DENIED, ERROR_PATH_NOT_FOUND, ERROR_DIRECTORY}) {
        refused = folder / L"*";
        refusal = error;
        ExpectFailure([this] { VisitTree(directory.path, Ignore); },
                      "recursive_directory_iterator::operator++", error, folder);
    }
}

// Every directory down to the last level holds just another one.
TEST(VisitTreeDepth, ThousandsOfLevelsAreReached) {
    constexpr std::size_t kLevels = 1500;
    std::size_t opened = 0;
    std::size_t closed = 0;
    const ScopedReplacement<decltype(FindFirstFileExW)> open{
        doubles::FindFirstFileExW,
        [&](LPCWSTR, FINDEX_INFO_LEVELS, LPVOID data, FINDEX_SEARCH_OPS, LPVOID, DWORD) {
            WIN32_FIND_DATAW entry{};
            entry.dwFileAttributes =
                ++opened > kLevels ? FILE_ATTRIBUTE_NORMAL : FILE_ATTRIBUTE_DIRECTORY;
            entry.cFileName[0] = L'd';
            std::memcpy(data, &entry, sizeof(entry));
            return reinterpret_cast<HANDLE>(opened);
        }};
    const ScopedReplacement<decltype(FindNextFileW)> advance{
        doubles::FindNextFileW,
        [](HANDLE, LPWIN32_FIND_DATAW) { return FailWith(ERROR_NO_MORE_FILES); }};
    const ScopedReplacement<decltype(FindClose)> close{
        doubles::FindClose, [&](auto search) {
            EXPECT_EQ(search, reinterpret_cast<HANDLE>(opened - closed));
            ++closed;
            return TRUE;
        }};
    std::size_t entries = 0;
    std::size_t longest = 0;
    VisitTree(L"C:\\tree", [&](const ListedEntry& entry) {
        ++entries;
        longest = std::max(longest, entry.relativePath.native().size());
    });
    EXPECT_EQ(entries, kLevels + 1);
    EXPECT_EQ(longest, 2 * kLevels + 1);
    EXPECT_EQ(closed, opened);
}

TEST_F(DirectoryListingFailure, AReparsePointIsASymbolicLinkOrUnknownByItsTag) {
    constexpr DWORD kAppExecutableTag = 0x8000001B;
    using std::filesystem::file_type;
    const struct {
        DWORD attributes;
        DWORD tag;
        file_type type;
    } cases[] = {
        {FILE_ATTRIBUTE_REPARSE_POINT, IO_REPARSE_TAG_SYMLINK, file_type::symlink},
        {FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY, IO_REPARSE_TAG_SYMLINK,
         file_type::symlink},
        {FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY, IO_REPARSE_TAG_MOUNT_POINT,
         file_type::unknown},
        {FILE_ATTRIBUTE_REPARSE_POINT, kAppExecutableTag, file_type::unknown},
        // Without the attribute the field means nothing.
        {FILE_ATTRIBUTE_NORMAL, IO_REPARSE_TAG_SYMLINK, file_type::regular},
    };
    for (const auto& [attributes, tag, type] : cases) {
        const ScopedReplacement changing(
            doubles::FindNextFileW,
            [&, attributes = attributes, tag = tag](HANDLE search, LPWIN32_FIND_DATAW data) {
                const BOOL advanced = FindNextFileW(search, data);
                data->dwFileAttributes = attributes;
                data->dwReserved0 = tag;
                return advanced;
            });
        std::vector<file_type> types;
        VisitTree(directory.path, [&](const ListedEntry& entry) { types.push_back(entry.type); });
        EXPECT_THAT(types, ElementsAre(type)) << "shown, and not entered";
    }
}

TEST_F(DirectoryListingFailure, NothingIsAskedAboutAnEntry) {
    const ScopedReplacement gone(doubles::GetFileAttributesExW,
                                 [](LPCWSTR, GET_FILEEX_INFO_LEVELS, LPVOID) {
                                     ADD_FAILURE() << "a query";
                                     return FailWith(ERROR_FILE_NOT_FOUND);
                                 });
    std::vector<std::wstring> entries;
    VisitTree(directory.path,
              [&](const ListedEntry& entry) { entries.push_back(entry.relativePath.native()); });
    EXPECT_THAT(entries, ElementsAre(L"\u5939", L"\u5939\\file"));
}

}  // namespace

}  // namespace updater
