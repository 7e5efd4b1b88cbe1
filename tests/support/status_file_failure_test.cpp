// The status file when the move into place, a read or a write fails: they are replaced at link
// time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "fixtures/damaged_file.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "support/status_file.h"
#include "support/windows_api.h"

namespace updater {

namespace {

using testing::ElementsAre;
using testing::Pair;

TEST(WriteUpdateStatusFailure, TheMoveReplacesAndReachesTheDisk) {
    const TemporaryDirectory job;
    int moves = 0;
    const ScopedReplacement observedMove(
        doubles::MoveFileExW, [&](LPCWSTR source, LPCWSTR target, DWORD flags) {
            ++moves;
            EXPECT_EQ(source, (job.path / L"status.tmp").native());
            EXPECT_EQ(target, (job.path / L"status.json").native());
            EXPECT_EQ(flags, 9U);
            EXPECT_EQ(ReadFileContent(source), R"({"state":"ready","message":"m","exitCode":0})")
                << "closed and complete before the move";
            return MoveFileExW(source, target, flags);
        });
    WriteUpdateStatus(job.path, kStateReady, "m", 0);
    EXPECT_EQ(moves, 1);
}

TEST(WriteUpdateStatusFailure, AFailedMoveKeepsTheOldRecordAndTheTemporaryFile) {
    const TemporaryDirectory job;
    WriteUpdateStatus(job.path, kStateReady, "old", 0);
    const ScopedReplacement failingMove(doubles::MoveFileExW, [](LPCWSTR, LPCWSTR, DWORD) {
        return FailWith(ERROR_ACCESS_DENIED);
    });
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
        const ScopedReplacement fullDisk(doubles::WriteFile,
                                         [](HANDLE, LPCVOID, DWORD, LPDWORD, LPOVERLAPPED) {
                                             return FailWith(ERROR_DISK_FULL);
                                         });
        EXPECT_NO_THROW(WriteUpdateStatus(job.path, kStateReady, "m", 0));
    }
    EXPECT_THAT(ReadTreeContent(job.path), ElementsAre(Pair(L"status.json", "")));
}

TEST(ReadStatusReportFailure, AReadThatFailsHardLeavesThePlaceEmpty) {
    const TemporaryDirectory job;
    const std::wstring emptyReport = ReadStatusReport(job.path);
    WriteFileContent(job.path / kStatusFile, std::string(70000, 'x'));
    // At the start, within the first portion, after it, and where the end should be seen.
    for (const int readable : {0, 8192, 65536, 70000}) {
        SCOPED_TRACE(readable);
        const DamagedFile damaged(kStatusFile, readable);
        EXPECT_EQ(ReadStatusReport(job.path), emptyReport);
        EXPECT_EQ(damaged.failures, 1);
    }
}

}  // namespace

}  // namespace updater
