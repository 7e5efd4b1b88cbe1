#include <gtest/gtest.h>

#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/processes/expected_records.h"
#include "fixtures/raised_errors.h"
#include "support/file_system.h"
#include "worker/worker.h"
#include "worker/worker_world.h"

namespace updater {
namespace {

constexpr DWORD kTenSeconds = 10000;

const StatusRecord kSucceeded = {"succeeded", "Installed version 2.0.0.0", 0};
const StatusRecord kCancelled = {"cancelled", "Application remained open; installation cancelled",
                                 0};

bool IsSet(const UniqueHandle& event) {
    return WaitForSingleObjectEx(event.get(), 0, FALSE) == WAIT_OBJECT_0;
}

TEST(WorkerHandshake, ReportsAuthorizedWithAVerifiedCopyBeforeItIsReady) {
    WorkerWorld world;
    bool looked = false;
    const auto whenReady = world.onReady;
    world.onReady = [&] {
        looked = true;
        EXPECT_TRUE(IsSet(world.ready));
        EXPECT_EQ(ReadStatusRecord(world.jobDirectory), kAuthorized);
        EXPECT_EQ(ReadFileContent(world.StagingDirectory() / L"installer.exe"),
                  ReadFileContent(world.installer));
        whenReady();
    };
    EXPECT_EQ(RunWorker(world.arguments), 0);
    EXPECT_TRUE(looked);
    EXPECT_EQ(world.records, (std::vector{kAuthorized, kInstalling, kSucceeded}));
}

TEST(WorkerHandshake, WaitsThreeMinutesForTheCommitAndThenTenSecondsForTheApplication) {
    WorkerWorld world;
    RunWorker(world.arguments);
    EXPECT_EQ(world.CommitWaits(), std::vector<DWORD>{kThreeMinutes});
    const std::vector<DWORD> parentWaits = world.time.WaitsForProcess(world.application.id);
    // The scans for running instances look at the ended application once more.
    ASSERT_FALSE(parentWaits.empty());
    EXPECT_EQ(parentWaits.front(), kTenSeconds);
}

TEST(WorkerHandshake, NeverSetsTheCommitEvent) {
    WorkerWorld world;
    world.LetBrokerNeverCommit();
    RunWorker(world.arguments);
    EXPECT_FALSE(IsSet(world.commit));
    EXPECT_TRUE(IsSet(world.ready));
}

TEST(WorkerHandshake, ResetsNeitherEvent) {
    WorkerWorld world;
    EXPECT_EQ(RunWorker(world.arguments), 0);
    EXPECT_TRUE(IsSet(world.commit));
    EXPECT_TRUE(IsSet(world.ready));
}

// Commits, after which the wait for the application, which has exited, ends with this result.
void CommitAndForce(WorkerWorld& world, DWORD result) {
    world.onReady = [&world, result] {
        world.time.After(0, [&world, result] {
            world.application.End();
            SetEvent(world.commit.get());
            world.time.forcedResult = result;
        });
    };
}

struct NoCommit {
    const char* name;
    ULONGLONG duration;
    void (*arrange)(WorkerWorld& world);
};

const NoCommit kNoCommits[] = {
    {"TheBrokerNeverCommits", kThreeMinutes,
     [](WorkerWorld& world) { world.LetBrokerNeverCommit(); }},
    {"TheBrokerNeverCommitsThoughTheApplicationExits", kThreeMinutes,
     [](WorkerWorld& world) { world.onReady = [&world] { world.application.End(); }; }},
    {"TheCommitComesTooLate", kThreeMinutes,
     [](WorkerWorld& world) {
         world.onReady = [&world] {
             world.time.After(kThreeMinutes + 1, [&world] { SetEvent(world.commit.get()); });
         };
     }},
    {"TheWaitForTheCommitFails", kThreeMinutes,
     [](WorkerWorld& world) {
         world.onReady = [&world] { world.time.forcedResult = WAIT_FAILED; };
     }},
    {"TheCommitIsAbandoned", kThreeMinutes,
     [](WorkerWorld& world) {
         world.onReady = [&world] { world.time.forcedResult = WAIT_ABANDONED; };
     }},
    {"TheApplicationStaysOpen", kTenSeconds,
     [](WorkerWorld& world) { world.onReady = [&world] { SetEvent(world.commit.get()); }; }},
    {"TheApplicationExitsTooLate", kTenSeconds,
     [](WorkerWorld& world) {
         world.onReady = [&world] {
             SetEvent(world.commit.get());
             world.time.After(kTenSeconds + 1, [&world] { world.application.End(); });
         };
     }},
    {"TheWaitForTheApplicationFails", kTenSeconds,
     [](WorkerWorld& world) { CommitAndForce(world, WAIT_FAILED); }},
    {"TheApplicationIsAbandoned", kTenSeconds,
     [](WorkerWorld& world) { CommitAndForce(world, WAIT_ABANDONED); }},
};

struct WorkerWithoutCommit : testing::TestWithParam<NoCommit> {};

TEST_P(WorkerWithoutCommit, CancelsAndRemovesTheStagingDirectory) {
    WorkerWorld world;
    const auto before = ReadTreeContent(world.installDirectory);
    GetParam().arrange(world);
    EXPECT_EQ(RunWorker(world.arguments), 2);
    EXPECT_EQ(world.records, (std::vector{kAuthorized, kCancelled}));
    EXPECT_EQ(ReadStatusRecord(world.jobDirectory), kCancelled);
    EXPECT_FALSE(PathExists(world.StagingDirectory()));
    EXPECT_EQ(world.time.Passed(), GetParam().duration);
    EXPECT_TRUE(world.installed.processes.starts.empty());
    EXPECT_EQ(ReadTreeContent(world.installDirectory), before);
}

INSTANTIATE_TEST_SUITE_P(When, WorkerWithoutCommit, testing::ValuesIn(kNoCommits),
                         [](const auto& test) { return test.param.name; });

TEST(WorkerHandshake, DoesNotWaitForTheApplicationWithoutACommit) {
    WorkerWorld world;
    world.LetBrokerNeverCommit();
    RunWorker(world.arguments);
    EXPECT_TRUE(world.time.WaitsForProcess(world.application.id).empty());
}

TEST(WorkerHandshake, TakesTheCommitAndTheApplicationsExitInTheLastMoment) {
    WorkerWorld world;
    world.onReady = [&] {
        world.time.After(kThreeMinutes, [&] { SetEvent(world.commit.get()); });
        world.time.After(kThreeMinutes + kTenSeconds, [&] { world.application.End(); });
    };
    EXPECT_EQ(RunWorker(world.arguments), 0);
    EXPECT_EQ(world.records.back(), kSucceeded);
}

TEST(WorkerCancellation, LeavesTheStagingDirectoryWhenItCannotBeRecorded) {
    WorkerWorld world;
    world.LetBrokerNeverCommit();
    world.installed.faults.unwritableStates = {"cancelled"};
    EXPECT_THAT([&] { RunWorker(world.arguments); }, RaisesError("Cannot write update status"));
    EXPECT_TRUE(PathExists(world.StagingDirectory() / L"installer.exe"));
}

TEST(WorkerCancellation, RaisesWhenTheStagingDirectoryCannotBeRemoved) {
    WorkerWorld world;
    UniqueHandle held;
    world.onReady = [&] {
        const std::filesystem::path copy = world.StagingDirectory() / L"installer.exe";
        held = HoldFile(copy);
    };
    EXPECT_THAT([&] { RunWorker(world.arguments); }, RaisesFileSystemError("remove_all"));
    EXPECT_EQ(world.records.back(), kCancelled);
}

TEST(WorkerCancellation, RemovesWhateverTheStagingDirectoryHolds) {
    WorkerWorld world;
    world.onReady = [&] {
        WriteFileContent(world.StagingDirectory() / L"backup" / L"data" / L"\u6DF1 x.bin", "x");
        SetFileAttributesW((world.StagingDirectory() / L"installer.exe").c_str(),
                           FILE_ATTRIBUTE_READONLY);
    };
    EXPECT_EQ(RunWorker(world.arguments), 2);
    EXPECT_FALSE(PathExists(world.StagingDirectory()));
}

TEST(WorkerCancellation, AcceptsThatTheStagingDirectoryIsGoneAlready) {
    WorkerWorld world;
    world.onReady = [&] { RemoveTree(world.StagingDirectory()); };
    EXPECT_EQ(RunWorker(world.arguments), 2);
    EXPECT_EQ(world.records.back(), kCancelled);
}

struct FailureAfterStaging {
    const char* name;
    const char* message;
    void (*arrange)(WorkerWorld& world);
};

const FailureAfterStaging kFailuresAfterStaging[] = {
    {"AnotherSize", "Protected installer size or SHA256 mismatch",
     [](WorkerWorld& world) { world.arguments[kSizeOption] = L"1"; }},
    {"AnotherDigest", "Protected installer size or SHA256 mismatch",
     [](WorkerWorld& world) { world.arguments[kSha256Option] = std::wstring(64, L'0'); }},
    {"NoRecord", "Cannot write update status",
     [](WorkerWorld& world) { world.installed.faults.unwritableStates = {"authorized"}; }},
};

struct WorkerFailingAfterStaging : testing::TestWithParam<FailureAfterStaging> {};

TEST_P(WorkerFailingAfterStaging, LeavesTheCopyAndIsNeverReady) {
    WorkerWorld world;
    GetParam().arrange(world);
    EXPECT_THAT([&] { RunWorker(world.arguments); }, RaisesError(GetParam().message));
    EXPECT_TRUE(PathExists(world.StagingDirectory() / L"installer.exe"));
    EXPECT_FALSE(IsSet(world.ready));
    EXPECT_TRUE(world.records.empty());
}

INSTANTIATE_TEST_SUITE_P(For, WorkerFailingAfterStaging, testing::ValuesIn(kFailuresAfterStaging),
                         [](const auto& test) { return test.param.name; });

TEST(WorkerStaging, LeavesTheEmptyDirectoryWhenTheSetupProgramCannotBeCopied) {
    WorkerWorld world;
    world.arguments[kInstallerOption] = world.installed.directory.path / L"missing.exe";
    EXPECT_THAT([&] { RunWorker(world.arguments); }, RaisesFileSystemError("copy_file"));
    EXPECT_TRUE(ReadTreeContent(world.StagingDirectory()).empty());
    EXPECT_FALSE(IsSet(world.ready));
}

TEST(WorkerStaging, AcceptsASizeWithLettersBehindIt) {
    WorkerWorld world;
    world.arguments[kSizeOption] += L"bytes";
    EXPECT_EQ(RunWorker(world.arguments), 0);
}

}  // namespace
}  // namespace updater
