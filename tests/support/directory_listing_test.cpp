#include "support/directory_listing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "fixtures/directory_link.h"
#include "fixtures/expect_file_system_error.h"
#include "fixtures/file_content.h"
#include "fixtures/open_handles.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "support/file_system.h"
#include "support/windows_api.h"

namespace updater {

namespace {

using std::filesystem::file_type;
using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

constexpr char kOpenDirectory[] = "directory_iterator::directory_iterator";
constexpr char kOpenTree[] = "recursive_directory_iterator::recursive_directory_iterator";
constexpr char kAdvanceTree[] = "recursive_directory_iterator::operator++";

std::vector<std::wstring> ListDirectory(const std::filesystem::path& directory) {
    std::vector<std::wstring> entries;
    VisitDirectory(directory, [&](const ListedEntry& entry) {
        entries.push_back(entry.relativePath.native());
    });
    return entries;
}

std::vector<std::wstring> ListTree(const std::filesystem::path& directory) {
    std::vector<std::wstring> entries;
    VisitTree(directory,
              [&](const ListedEntry& entry) { entries.push_back(entry.relativePath.native()); });
    return entries;
}

void Ignore(const ListedEntry&) {}

TEST(VisitDirectory, ShowsFilesAndDirectoriesDirectlyInIt) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"\u6587\u4EF6 a.txt", "");
    WriteFileContent(directory.path / L"folder" / L"inner", "");
    WriteFileContent(directory.path / L".hidden", "");
    WriteFileContent(directory.path / L"..b", "");
    SetFileAttributesW((directory.path / L".hidden").c_str(),
                       FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
    EXPECT_THAT(ListDirectory(directory.path),
                UnorderedElementsAre(L"\u6587\u4EF6 a.txt", L"folder", L".hidden", L"..b"));
    EXPECT_THAT(ListDirectory(directory.path.native() + L"\\"),
                UnorderedElementsAre(L"\u6587\u4EF6 a.txt", L"folder", L".hidden", L"..b"));
}

// A link is a symbolic link on Windows; the one that Wine shows has no tag that says so.
TEST(VisitDirectory, ShowsWhatEachEntryIsItself) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"folder" / L"inner", "");
    WriteFileContent(directory.path / L"file", "");
    WriteFileContent(directory.path / L"hidden", "");
    SetFileAttributesW((directory.path / L"hidden").c_str(),
                       FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
    const DirectoryLink link(directory.path / L"link", directory.path / L"folder");
    std::map<std::wstring, file_type> types;
    VisitTree(directory.path,
              [&](const ListedEntry& entry) { types[entry.relativePath.native()] = entry.type; });
    EXPECT_THAT(
        types,
        ElementsAre(Pair(L"file", file_type::regular), Pair(L"folder", file_type::directory),
                    Pair(L"folder\\inner", file_type::regular), Pair(L"hidden", file_type::regular),
                    Pair(L"link", AnyOf(file_type::symlink, file_type::unknown))));
}

TEST(VisitDirectory, AnEmptyDirectoryShowsNothing) {
    const TemporaryDirectory directory;
    EXPECT_THAT(ListDirectory(directory.path), IsEmpty());
    EXPECT_THAT(ListTree(directory.path), IsEmpty());
}

TEST(VisitDirectory, AMissingDirectoryCannotBeOpened) {
    const TemporaryDirectory directory;
    const std::filesystem::path missing = directory.path / L"missing \xD800";
    ExpectFileSystemError([&] { VisitDirectory(missing, Ignore); }, kOpenDirectory,
                          ERROR_PATH_NOT_FOUND, missing);
    ExpectFileSystemError([&] { VisitTree(missing, Ignore); }, kOpenTree, ERROR_PATH_NOT_FOUND,
                          missing);
    ExpectFileSystemError([&] { VisitTree(missing, Ignore, {"open", "advance"}); }, "open",
                          ERROR_PATH_NOT_FOUND, missing);
}

TEST(VisitDirectory, AnEmptyPathIsNotTheCurrentDirectory) {
    ExpectFileSystemError([] { VisitDirectory(L"", Ignore); }, kOpenDirectory, ERROR_PATH_NOT_FOUND,
                          L"");
    ExpectFileSystemError([] { VisitTree(L"", Ignore); }, kOpenTree, ERROR_PATH_NOT_FOUND, L"");
}

// Windows calls it an invalid directory name, Wine a path that is not found.
TEST(VisitDirectory, AFileCannotBeOpened) {
    const TemporaryDirectory directory;
    const std::filesystem::path file = directory.path / L"file";
    WriteFileContent(file, "");
    EXPECT_THAT([&] { VisitDirectory(file, Ignore); }, RaisesFileSystemError(kOpenDirectory, file));
    EXPECT_THAT([&] { VisitTree(file, Ignore); }, RaisesFileSystemError(kOpenTree, file));
}

TEST(VisitTree, ShowsADirectoryBeforeWhatItHolds) {
    const TemporaryDirectory directory;
    for (const wchar_t* file : {L"a\\b\\c\\1", L"a\\b\\2", L"a\\3", L"4", L"d\\5", L"d\\e\\6"}) {
        WriteFileContent(directory.path / file, "");
    }
    CreateDirectories(directory.path / L"empty" / L"empty too");

    const std::vector<std::wstring> entries = ListTree(directory.path);
    EXPECT_THAT(entries, UnorderedElementsAre(L"4", L"a", L"a\\3", L"a\\b", L"a\\b\\2", L"a\\b\\c",
                                              L"a\\b\\c\\1", L"d", L"d\\5", L"d\\e", L"d\\e\\6",
                                              L"empty", L"empty\\empty too"));
    std::set<std::filesystem::path> seen = {L""};
    for (const std::filesystem::path entry : entries) {
        EXPECT_TRUE(seen.contains(entry.parent_path())) << entry;
        seen.insert(entry);
    }
}

TEST(VisitTree, WhatADirectoryHoldsFollowsItAtOnce) {
    const TemporaryDirectory directory;
    for (const wchar_t* file : {L"a\\1", L"a\\2", L"b\\1", L"b\\2", L"c\\1", L"c\\2"}) {
        WriteFileContent(directory.path / file, "");
    }
    const std::vector<std::wstring> entries = ListTree(directory.path);
    ASSERT_EQ(entries.size(), 9U);
    for (const std::size_t index : {0U, 3U, 6U}) {
        EXPECT_EQ(entries[index].size(), 1U);
        EXPECT_TRUE(entries[index + 1].starts_with(entries[index] + L"\\"));
        EXPECT_TRUE(entries[index + 2].starts_with(entries[index] + L"\\"));
    }
}

TEST(VisitTree, LinksAreShownButNotEntered) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"outside" / L"file", "");
    CreateDirectories(directory.path / L"tree" / L"folder");
    const DirectoryLink link(directory.path / L"tree" / L"folder" / L"link",
                             directory.path / L"outside");
    const DirectoryLink loop(directory.path / L"tree" / L"loop", directory.path / L"tree");
    EXPECT_THAT(ListTree(directory.path / L"tree"),
                UnorderedElementsAre(L"folder", L"folder\\link", L"loop"));
    EXPECT_THAT(ListDirectory(directory.path / L"tree"), UnorderedElementsAre(L"folder", L"loop"));
}

TEST(VisitTree, ALinkAsTheDirectoryItselfIsEntered) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"target" / L"folder" / L"file", "");
    const DirectoryLink link(directory.path / L"link", directory.path / L"target");
    EXPECT_THAT(ListTree(link.link), ElementsAre(L"folder", L"folder\\file"));
    EXPECT_THAT(ListDirectory(link.link), ElementsAre(L"folder"));
}

// Wine takes a minute for a thousand levels; those are tested with replaced system calls.
TEST(VisitTree, HundredsOfLevelsBeyondTheShortPathLimitAreReached) {
    constexpr std::size_t kLevels = 300;
    const TemporaryDirectory directory;
    std::filesystem::path deepest = directory.path;
    for (std::size_t level = 0; level < kLevels; ++level) {
        deepest /= L"d";
    }
    WriteFileContent(deepest / L"file", "content");

    const std::vector<std::wstring> entries = ListTree(directory.path);
    ASSERT_EQ(entries.size(), kLevels + 1);
    EXPECT_EQ(entries.back().size(), 2 * kLevels + 4);
    EXPECT_EQ(ReadFileContent(directory.path / entries.back()), "content");
    RemoveTree(directory.path / L"d");
    EXPECT_THAT(ListDirectory(directory.path), IsEmpty());
}

TEST(VisitTree, ADirectoryOfManyEntriesIsShownWhole) {
    constexpr int kFiles = 1000;
    const TemporaryDirectory directory;
    for (int file = 0; file < kFiles; ++file) {
        WriteFileContent(directory.path / (L"file " + std::to_wstring(file)), "");
    }
    const std::vector<std::wstring> entries = ListTree(directory.path);
    EXPECT_EQ(entries.size(), static_cast<std::size_t>(kFiles));
    EXPECT_EQ(std::set(entries.begin(), entries.end()).size(), static_cast<std::size_t>(kFiles));
}

TEST(VisitTree, TheVisitorMayRemoveTheFilesThatItIsShown) {
    const TemporaryDirectory directory;
    for (const wchar_t* file : {L"a", L"b", L"c\\d", L"c\\e", L"f\\g\\h"}) {
        WriteFileContent(directory.path / file, "");
    }
    VisitTree(directory.path, [&](const ListedEntry& entry) {
        if (entry.type == file_type::regular) {
            RemoveFile(directory.path / entry.relativePath);
        }
    });
    EXPECT_THAT(ListTree(directory.path), UnorderedElementsAre(L"c", L"f", L"f\\g"));
}

TEST(VisitTree, ADirectoryThatVanishesBeforeItIsEnteredIsAnErrorOfTheAdvance) {
    const TemporaryDirectory directory;
    CreateDirectories(directory.path / L"a");
    ExpectFileSystemError(
        [&] {
            VisitTree(directory.path, [&](const ListedEntry& entry) {
                RemoveDirectoryW((directory.path / entry.relativePath).c_str());
            });
        },
        kAdvanceTree, ERROR_PATH_NOT_FOUND, directory.path / L"a");
}

TEST(VisitTree, TheVisitorsOwnFailurePassesThroughAndNothingStaysOpen) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"a" / L"b" / L"c", "");
    const auto failAt = [&](const std::wstring& name) {
        EXPECT_THAT(
            [&] {
                VisitTree(directory.path, [&](const ListedEntry& entry) {
                    if (entry.relativePath.filename() == name) {
                        throw std::runtime_error("stop");
                    }
                });
            },
            RaisesError("stop"));
    };
    const auto visitAll = [&] {
        for (const wchar_t* name : {L"a", L"b", L"c"}) {
            failAt(name);
        }
        ListTree(directory.path);
        ListDirectory(directory.path);
        const std::filesystem::path missing = directory.path / L"missing";
        EXPECT_THAT([&] { ListTree(missing); },
                    RaisesFileSystemError(
                        "recursive_directory_iterator::recursive_directory_iterator", missing));
    };
    ExpectNoHandleLeft(visitAll);
}

}  // namespace

}  // namespace updater
