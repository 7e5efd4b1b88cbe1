// The status file when the move into place or a read fails: both are replaced at link time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "fixtures/file_content.h"
#include "fixtures/raised_errors.h"
#include "fixtures/replacement.h"
#include "fixtures/temporary_directory.h"
#include "support/status_file.h"
#include "support/windows_api.h"

namespace updater {

REPLACE_IMPORTED(MoveFileExW, moveFileEx)

namespace {

Replacement<int(int, const void*, unsigned)> writeFile;
Replacement<int(int, void*, unsigned)> readFile;

}  // namespace

extern "C" {

extern int __real_write(int, const void*, unsigned);
extern int __real_read(int, void*, unsigned);

int __wrap_write(int file, const void* buffer, unsigned bytes) {
    return writeFile.Call(__real_write, file, buffer, bytes);
}

int __wrap_read(int file, void* buffer, unsigned bytes) {
    return readFile.Call(__real_read, file, buffer, bytes);
}

}  // extern "C"

namespace {

using testing::ElementsAre;
using testing::Pair;

TEST(WriteUpdateStatusFailure, TheMoveReplacesAndReachesTheDisk) {
    const TemporaryDirectory job;
    int moves = 0;
    const ScopedReplacement<decltype(MoveFileExW)> observedMove(
        moveFileEx, [&](LPCWSTR source, LPCWSTR target, DWORD flags) {
            ++moves;
            EXPECT_EQ(source, (job.path / L"status.tmp").native());
            EXPECT_EQ(target, (job.path / L"status.json").native());
            EXPECT_EQ(flags, 9U);
            EXPECT_EQ(ReadFileContent(source), R"({"state":"ready","message":"m","exitCode":0})")
                << "closed and complete before the move";
            return __real___imp_MoveFileExW(source, target, flags);
        });
    WriteUpdateStatus(job.path, kStateReady, "m", 0);
    EXPECT_EQ(moves, 1);
}

TEST(WriteUpdateStatusFailure, AFailedMoveKeepsTheOldRecordAndTheTemporaryFile) {
    const TemporaryDirectory job;
    WriteUpdateStatus(job.path, kStateReady, "old", 0);
    const ScopedReplacement<decltype(MoveFileExW)> failingMove(
        moveFileEx, [](LPCWSTR, LPCWSTR, DWORD) { return FailWith(ERROR_ACCESS_DENIED); });
    EXPECT_THAT([&] { WriteUpdateStatus(job.path, kStateFailed, "new", 1); },
                RaisesError("Cannot write update status"));
    EXPECT_THAT(
        ReadTreeContent(job.path),
        ElementsAre(Pair(L"status.json", R"({"state":"ready","message":"old","exitCode":0})"),
                    Pair(L"status.tmp", R"({"state":"failed","message":"new","exitCode":1})")));
}

TEST(WriteUpdateStatusFailure, AFailedWriteShowsOnlyInWhatIsMovedIntoPlace) {
    const TemporaryDirectory job;
    {
        const ScopedReplacement<int(int, const void*, unsigned)> fullDisk(
            writeFile, [](int, const void*, unsigned) {
                errno = ENOSPC;
                return -1;
            });
        EXPECT_NO_THROW(WriteUpdateStatus(job.path, kStateReady, "m", 0));
    }
    EXPECT_THAT(ReadTreeContent(job.path), ElementsAre(Pair(L"status.json", "")));
}

TEST(ReadStatusReportFailure, AReadThatFailsHardLeavesThePlaceEmpty) {
    const TemporaryDirectory job;
    const std::wstring emptyReport = ReadStatusReport(job.path);
    WriteFileContent(job.path / kStatusFile, std::string(10000, 'x'));
    for (const int failingRead : {1, 2}) {
        int reads = 0;
        const ScopedReplacement<int(int, void*, unsigned)> failingDisk(
            readFile, [&](int file, void* buffer, unsigned bytes) {
                if (++reads == failingRead) {
                    errno = EIO;
                    return -1;
                }
                return __real_read(file, buffer, bytes);
            });
        EXPECT_EQ(ReadStatusReport(job.path), emptyReport);
        EXPECT_EQ(reads, failingRead);
    }
}

}  // namespace

}  // namespace updater
