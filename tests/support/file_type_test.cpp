#include "support/file_type.h"

#include <gtest/gtest.h>

#include "fixtures/directory_link.h"
#include "fixtures/file_content.h"
#include "fixtures/temporary_directory.h"
#include "support/directory_listing.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/windows_api.h"

namespace updater {

namespace {

using std::filesystem::file_type;

TEST(QueryFileType, TellsFilesFromDirectories) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"\u6587\u4EF6 a", "content");
    for (const Links links : {Links::Followed, Links::NotFollowed}) {
        EXPECT_EQ(QueryFileType(directory.path / L"\u6587\u4EF6 a", links, "o"),
                  file_type::regular);
        EXPECT_EQ(QueryFileType(directory.path, links, "o"), file_type::directory);
        EXPECT_EQ(QueryFileType(directory.path.native() + L"\\", links, "o"), file_type::directory);
        EXPECT_EQ(QueryFileType(L"C:\\", links, "o"), file_type::directory);
    }
}

TEST(QueryFileType, AttributesAndOpenHandlesMakeNoDifference) {
    const TemporaryDirectory directory;
    const std::filesystem::path file = directory.path / L"file";
    WriteFileContent(file, "");
    SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
    const UniqueHandle exclusive =
        OwnHandle(CreateFileW(file.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(exclusive);
    EXPECT_EQ(QueryFileType(file, Links::Followed, "o"), file_type::regular);
}

TEST(QueryFileType, WhatDoesNotExistIsNotFound) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"file", "");
    for (const Links links : {Links::Followed, Links::NotFollowed}) {
        for (const std::filesystem::path& path :
             {directory.path / L"missing", directory.path / L"missing" / L"x",
              directory.path / L"file" / L"x", directory.path / L"in*valid",
              std::filesystem::path()}) {
            EXPECT_EQ(QueryFileType(path, links, "o"), file_type::not_found);
        }
    }
}

TEST(QueryFileType, ALinkIsADirectoryWhenFollowed) {
    const TemporaryDirectory directory;
    CreateDirectories(directory.path / L"target");
    const DirectoryLink link(directory.path / L"link", directory.path / L"target");
    EXPECT_EQ(QueryFileType(link.link, Links::Followed, "o"), file_type::directory);
    EXPECT_EQ(EntryTypeFollowed(link.link), file_type::directory);
    // Not followed, the link is a symbolic link on Windows; the one that Wine shows has no tag that
    // says so, and there the answer is the target's.
    EXPECT_NE(QueryFileType(link.link, Links::NotFollowed, "o"), file_type::regular);
    EXPECT_NE(QueryFileType(link.link, Links::NotFollowed, "o"), file_type::not_found);
}

TEST(EntryType, OfAnEntryThatIsGoneIsNotFound) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"entry", "");
    EXPECT_EQ(EntryTypeItself(directory.path / L"entry"), file_type::regular);
    EXPECT_EQ(EntryTypeFollowed(directory.path / L"entry"), file_type::regular);
    RemoveFile(directory.path / L"entry");
    EXPECT_EQ(EntryTypeItself(directory.path / L"entry"), file_type::not_found);
    EXPECT_EQ(EntryTypeFollowed(directory.path / L"entry"), file_type::not_found);
}

}  // namespace

}  // namespace updater
