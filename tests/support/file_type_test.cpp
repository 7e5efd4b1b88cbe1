#include "support/file_type.h"

#include <gtest/gtest.h>

#include "fixtures/directory_link.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/temporary_directory.h"
#include "support/file_system.h"
#include "support/windows_api.h"

namespace updater {

namespace {

using std::filesystem::file_type;

TEST(QueryFileType, TellsFilesFromDirectories) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"\u6587\u4EF6 a", "content");
    EXPECT_EQ(QueryFileType(directory.path / L"\u6587\u4EF6 a", "o"), file_type::regular);
    EXPECT_EQ(QueryFileType(directory.path, "o"), file_type::directory);
    EXPECT_EQ(QueryFileType(directory.path.native() + L"\\", "o"), file_type::directory);
    EXPECT_EQ(QueryFileType(L"C:\\", "o"), file_type::directory);
}

TEST(QueryFileType, AttributesAndOpenHandlesMakeNoDifference) {
    const TemporaryDirectory directory;
    const std::filesystem::path file = directory.path / L"file";
    WriteFileContent(file, "");
    SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
    const UniqueHandle exclusive = HoldFile(file);
    EXPECT_EQ(QueryFileType(file, "o"), file_type::regular);
}

TEST(QueryFileType, WhatDoesNotExistIsNotFound) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"file", "");
    for (const std::filesystem::path& path :
         {directory.path / L"missing", directory.path / L"missing" / L"x",
          directory.path / L"file" / L"x", directory.path / L"in*valid", std::filesystem::path()}) {
        EXPECT_EQ(QueryFileType(path, "o"), file_type::not_found);
    }
}

TEST(QueryFileType, ALinkIsWhatItLeadsTo) {
    const TemporaryDirectory directory;
    CreateDirectories(directory.path / L"target");
    const DirectoryLink link(directory.path / L"link", directory.path / L"target");
    EXPECT_EQ(QueryFileType(link.link, "o"), file_type::directory);
}

}  // namespace

}  // namespace updater
