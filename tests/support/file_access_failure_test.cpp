// What files are opened, read and written with, and what comes of it when that fails: the system's
// functions are replaced at link time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "fixtures/damaged_file.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/open_handles.h"
#include "fixtures/temporary_directory.h"
#include "support/file_reading.h"
#include "support/file_writing.h"
#include "support/windows_api.h"

namespace updater {

namespace {

using testing::ElementsAre;

struct FileAccessFailure : testing::Test {
    FileAccessFailure() { WriteFileContent(file, std::string(200000, 'x')); }

    // Returns how many bytes each portion has; `complete` then says whether it was the whole file.
    std::vector<std::size_t> Portions() {
        std::vector<std::size_t> sizes;
        const UniqueHandle opened = OpenFileToRead(file);
        complete = VisitPortions(opened.get(), [&sizes](std::span<char> portion) {
            sizes.push_back(portion.size());
            return true;
        });
        return sizes;
    }

    TemporaryDirectory directory;
    std::filesystem::path file = directory.path / L"file";
    bool complete = false;
};

// What a file stream asks for, too: it lets others read and write, and no child inherits the file.
TEST_F(FileAccessFailure, FilesAreOpenedSharedAndForTheNeededAccessOnly) {
    DWORD expectedAccess = GENERIC_READ;
    DWORD expectedDisposition = OPEN_EXISTING;
    int opened = 0;
    const ScopedReplacement observed(
        doubles::CreateFileW,
        [&](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
            DWORD disposition, DWORD flags, HANDLE model) {
            ++opened;
            EXPECT_EQ(path, file.native());
            EXPECT_EQ(access, expectedAccess);
            EXPECT_EQ(share, DWORD{FILE_SHARE_READ | FILE_SHARE_WRITE});
            EXPECT_EQ(security, nullptr);
            EXPECT_EQ(disposition, expectedDisposition);
            EXPECT_EQ(flags, DWORD{FILE_ATTRIBUTE_NORMAL});
            EXPECT_EQ(model, nullptr);
            return CreateFileW(path, access, share, security, disposition, flags, model);
        });
    EXPECT_TRUE(OpenFileToRead(file));
    EXPECT_EQ(opened, 1);
    expectedAccess = GENERIC_WRITE;
    expectedDisposition = CREATE_ALWAYS;
    EXPECT_TRUE(OverwriteFile(file, "abc"));
    EXPECT_EQ(opened, 2);
}

TEST_F(FileAccessFailure, AFileThatCannotBeOpenedIsNeitherReadNorWritten) {
    const ScopedReplacement refusal(doubles::CreateFileW, [](auto...) {
        return FailWith(ERROR_SHARING_VIOLATION, INVALID_HANDLE_VALUE);
    });
    const ScopedReplacement noWriting(doubles::WriteFile, [](auto...) {
        ADD_FAILURE() << "Nothing is open";
        return FALSE;
    });
    EXPECT_FALSE(OpenFileToRead(file));
    EXPECT_FALSE(OverwriteFile(file, "abc"));
}

TEST_F(FileAccessFailure, AFileIsReadInPortionsOf64KiBUntilNothingComes) {
    std::vector<DWORD> asked;
    const ScopedReplacement observed(
        doubles::ReadFile,
        [&asked](HANDLE opened, LPVOID buffer, DWORD bytes, LPDWORD read, LPOVERLAPPED overlapped) {
            EXPECT_EQ(overlapped, nullptr);
            asked.push_back(bytes);
            return ReadFile(opened, buffer, bytes, read, overlapped);
        });
    EXPECT_THAT(Portions(), ElementsAre(65536, 65536, 65536, 3392));
    EXPECT_TRUE(complete);
    EXPECT_THAT(asked, ElementsAre(65536, 65536, 65536, 65536, 62144));
}

// As from a file on a network, or the end of a pipe.
TEST_F(FileAccessFailure, ReadsThatBringLessThanTheyAreAskedForMakeNoEnd) {
    std::string content;
    for (int line = 0; content.size() < 150000; ++line) {
        content += std::to_string(line) + '\n';
    }
    WriteFileContent(file, content);
    const ScopedReplacement slow(doubles::ReadFile, [](HANDLE opened, LPVOID buffer, DWORD bytes,
                                                       LPDWORD read, LPOVERLAPPED overlapped) {
        return ReadFile(opened, buffer, std::min<DWORD>(bytes, 1000), read, overlapped);
    });
    std::string read;
    std::vector<std::size_t> sizes;
    const UniqueHandle opened = OpenFileToRead(file);
    EXPECT_TRUE(VisitPortions(opened.get(), [&](std::span<char> portion) {
        sizes.push_back(portion.size());
        read.append(portion.begin(), portion.end());
        return true;
    }));
    EXPECT_TRUE(read == content) << "too long to be shown";
    EXPECT_THAT(sizes, ElementsAre(65536, 65536, content.size() - 131072));
}

TEST_F(FileAccessFailure, AReadThatFailsIsNoEndOfTheFile) {
    struct Case {
        std::int64_t readable;
        std::vector<std::size_t> portions;
    };
    for (const Case& damage :
         {Case{0, {0}}, Case{8192, {8192}}, Case{65536, {65536, 0}}, Case{70000, {65536, 4464}},
          Case{200000, {65536, 65536, 65536, 3392}}}) {
        SCOPED_TRACE(damage.readable);
        const DamagedFile damaged(L"file", damage.readable);
        EXPECT_EQ(Portions(), damage.portions) << "what was read is handed over";
        EXPECT_FALSE(complete);
        EXPECT_EQ(damaged.failures, 1) << "nothing is read after the failure";
    }
}

// Some systems tell the end by this error, but never for a file that is opened like this one.
TEST_F(FileAccessFailure, NoErrorOfAReadMeansTheEnd) {
    for (const DWORD error :
         {ERROR_HANDLE_EOF, ERROR_BROKEN_PIPE, ERROR_MORE_DATA, ERROR_SUCCESS}) {
        const ScopedReplacement failing(doubles::ReadFile,
                                        [error](auto...) { return FailWith(error); });
        EXPECT_THAT(Portions(), ElementsAre(0));
        EXPECT_FALSE(complete) << error;
    }
}

TEST_F(FileAccessFailure, ContentIsWrittenInPortionsAndGoesOnWhereAWriteStopped) {
    std::string content;
    for (int line = 0; content.size() < 150000; ++line) {
        content += std::to_string(line) + '\n';
    }
    std::vector<DWORD> asked;
    const ScopedReplacement slow(
        doubles::WriteFile, [&asked](HANDLE opened, LPCVOID data, DWORD bytes, LPDWORD written,
                                     LPOVERLAPPED overlapped) {
            EXPECT_EQ(overlapped, nullptr);
            asked.push_back(bytes);
            return WriteFile(opened, data, std::min<DWORD>(bytes, 60000), written, overlapped);
        });
    EXPECT_TRUE(OverwriteFile(file, content));
    EXPECT_TRUE(ReadFileContent(file) == content) << "too long to be shown";
    EXPECT_THAT(asked, ElementsAre(65536, 65536, content.size() - 120000));
}

TEST_F(FileAccessFailure, NoContentNeedsNoWrite) {
    const ScopedReplacement noWriting(doubles::WriteFile, [](auto...) {
        ADD_FAILURE() << "There is nothing to write";
        return FALSE;
    });
    EXPECT_TRUE(OverwriteFile(file, ""));
    EXPECT_EQ(ReadFileContent(file), "");
}

TEST_F(FileAccessFailure, AWriteThatFailsLeavesWhatWasWrittenBefore) {
    int writes = 0;
    const ScopedReplacement fullDisk(
        doubles::WriteFile, [&writes](HANDLE opened, LPCVOID data, DWORD bytes, LPDWORD written,
                                      LPOVERLAPPED overlapped) {
            return ++writes == 2 ? FailWith(ERROR_DISK_FULL)
                                 : WriteFile(opened, data, bytes, written, overlapped);
        });
    EXPECT_FALSE(OverwriteFile(file, std::string(150000, 'y')));
    EXPECT_EQ(writes, 2);
    EXPECT_EQ(ReadFileContent(file), std::string(65536, 'y'));
}

TEST_F(FileAccessFailure, AWriteThatWritesNothingIsNotRepeated) {
    int writes = 0;
    const ScopedReplacement stuck(doubles::WriteFile,
                                  [&writes](HANDLE, LPCVOID, DWORD, LPDWORD written, LPOVERLAPPED) {
                                      *written = 0;
                                      return ++writes < 10 ? TRUE : FailWith(ERROR_DISK_FULL);
                                  });
    EXPECT_FALSE(OverwriteFile(file, "abc"));
    EXPECT_EQ(writes, 1);
}

TEST_F(FileAccessFailure, LeavesNoHandleOpen) {
    ExpectNoHandleLeft([this] {
        const DamagedFile damaged(L"file", 100000);
        Portions();
        const ScopedReplacement fullDisk(doubles::WriteFile,
                                         [](auto...) { return FailWith(ERROR_DISK_FULL); });
        OverwriteFile(file, "abc");
    });
}

}  // namespace

}  // namespace updater
