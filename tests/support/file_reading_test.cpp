#include "support/file_reading.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "fixtures/directory_link.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/open_handles.h"
#include "fixtures/temporary_directory.h"
#include "support/windows_api.h"

namespace updater {

namespace {

struct FileReading : testing::Test {
    // Returns the portions that the file is handed over in, and expects it to be read to its end.
    std::vector<std::string> Portions() const {
        const UniqueHandle opened = OpenFileToRead(file);
        EXPECT_TRUE(opened);
        std::vector<std::string> portions;
        EXPECT_TRUE(VisitPortions(opened.get(), [&portions](std::span<char> portion) {
            portions.emplace_back(portion.begin(), portion.end());
            return true;
        }));
        return portions;
    }

    TemporaryDirectory directory;
    std::filesystem::path file = directory.path / L"\u6587\u4EF6 file";
};

TEST_F(FileReading, HandsOverWholePortionsAndTheRest) {
    struct Case {
        std::size_t size;
        std::vector<std::size_t> portions;
    };
    for (const Case& sizes :
         {Case{0, {0}}, Case{1, {1}}, Case{65535, {65535}}, Case{65536, {65536, 0}},
          Case{65537, {65536, 1}}, Case{131072, {65536, 65536, 0}},
          Case{140000, {65536, 65536, 8928}}}) {
        SCOPED_TRACE(sizes.size);
        WriteFileContent(file, PatternOfSize(sizes.size));
        std::string content;
        std::vector<std::size_t> counts;
        for (const std::string& portion : Portions()) {
            content += portion;
            counts.push_back(portion.size());
        }
        EXPECT_EQ(counts, sizes.portions);
        EXPECT_EQ(content, PatternOfSize(sizes.size));
    }
}

TEST_F(FileReading, ChangesNoByte) {
    const std::string content("\xEF\xBB\xBF\r\n\n\r a\0b \x1A\r\r\n\xFF", 17);
    WriteFileContent(file, content);
    EXPECT_EQ(Portions(), std::vector<std::string>{content});
}

TEST_F(FileReading, StopsWhenTheVisitorDoes) {
    WriteFileContent(file, std::string(200000, 'x'));
    const UniqueHandle opened = OpenFileToRead(file);
    for (const int last : {1, 2}) {
        int visits = 0;
        EXPECT_FALSE(VisitPortions(opened.get(), [&](std::span<char>) { return ++visits < last; }));
        EXPECT_EQ(visits, last);
    }
}

TEST_F(FileReading, OpensNothingThatIsNoFile) {
    for (const std::filesystem::path& path :
         {directory.path / L"missing", directory.path / L"missing\\file", directory.path,
          directory.path / L"", std::filesystem::path(), std::filesystem::path(L"a<b")}) {
        EXPECT_FALSE(OpenFileToRead(path)) << testing::PrintToString(path.native());
    }
    EXPECT_TRUE(ReadTreeContent(directory.path).empty()) << "nothing is created";
}

TEST_F(FileReading, FollowsLinksAndReadsWhatIsReadOnly) {
    WriteFileContent(directory.path / L"folder\\file", "abc");
    SetFileAttributesW((directory.path / L"folder\\file").c_str(), FILE_ATTRIBUTE_READONLY);
    const DirectoryLink link(directory.path / L"link", directory.path / L"folder");
    file = link.link / L"file";
    EXPECT_EQ(Portions(), std::vector<std::string>{"abc"});
}

TEST_F(FileReading, LetsOthersReadAndWriteMeanwhileButNotDelete) {
    WriteFileContent(file, "abc");
    {
        const UniqueHandle writer =
            HoldFile(file, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE);
        EXPECT_EQ(Portions(), std::vector<std::string>{"abc"}) << "beside a writer";
    }
    const UniqueHandle reader = OpenFileToRead(file);
    EXPECT_NO_THROW(HoldFile(file, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE));
    EXPECT_FALSE(DeleteFileW(file.c_str()));
}

TEST_F(FileReading, OpensNoFileThatOthersKeepFromReaders) {
    WriteFileContent(file, "abc");
    for (const DWORD share : {0, FILE_SHARE_WRITE, FILE_SHARE_DELETE}) {
        const UniqueHandle exclusive = HoldFile(file, GENERIC_READ, share);
        EXPECT_FALSE(OpenFileToRead(file)) << share;
    }
}

TEST_F(FileReading, LeavesNoHandleOpen) {
    WriteFileContent(file, std::string(100000, 'x'));
    ExpectNoHandleLeft([this] {
        Portions();
        OpenFileToRead(directory.path / L"missing");
    });
}

}  // namespace

}  // namespace updater
