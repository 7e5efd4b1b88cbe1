#include "support/file_writing.h"

#include <gtest/gtest.h>

#include <string>

#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/open_handles.h"
#include "fixtures/temporary_directory.h"
#include "support/windows_api.h"

namespace updater {

namespace {

struct FileWriting : testing::Test {
    TemporaryDirectory directory;
    std::filesystem::path file = directory.path / L"\u6587\u4EF6 file";
};

TEST_F(FileWriting, CreatesTheFileAndReplacesWhatItHeld) {
    for (const std::string& content :
         {std::string(200000, 'x'), std::string("short"), std::string(65536, 'y'), std::string(),
          std::string("\r\n\n\0\x1A\xFF", 6)}) {
        EXPECT_TRUE(OverwriteFile(file, content));
        EXPECT_EQ(ReadFileContent(file), content);
    }
}

TEST_F(FileWriting, LeavesOrdinaryAttributes) {
    EXPECT_TRUE(OverwriteFile(file, "abc"));
    const DWORD attributes = GetFileAttributesW(file.c_str());
    EXPECT_EQ(attributes & ~DWORD{FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NORMAL}, 0U);
}

TEST_F(FileWriting, CreatesNoDirectory) {
    EXPECT_FALSE(OverwriteFile(directory.path / L"missing\\file", "abc"));
    EXPECT_FALSE(OverwriteFile(directory.path, "abc"));
    EXPECT_FALSE(OverwriteFile(L"", "abc"));
    EXPECT_TRUE(ReadTreeContent(directory.path).empty());
}

TEST_F(FileWriting, ChangesNoFileThatOthersKeepFromWriters) {
    WriteFileContent(file, "old");
    {
        const UniqueHandle reader = HoldFile(file, GENERIC_READ, FILE_SHARE_READ);
        EXPECT_FALSE(OverwriteFile(file, "new"));
    }
    EXPECT_EQ(ReadFileContent(file), "old");
}

TEST_F(FileWriting, WritesWhatOthersReadAndWriteMeanwhile) {
    WriteFileContent(file, "old");
    const UniqueHandle other =
        HoldFile(file, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE);
    EXPECT_TRUE(OverwriteFile(file, "new"));
    EXPECT_EQ(ReadFileContent(file), "new");
}

TEST_F(FileWriting, LeavesNoHandleOpen) {
    ExpectNoHandleLeft([this] {
        OverwriteFile(file, "abc");
        OverwriteFile(directory.path, "abc");
    });
}

}  // namespace

}  // namespace updater
