#include <gtest/gtest.h>

#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/processes/expected_records.h"
#include "fixtures/raised_errors.h"
#include "fixtures/scenes/worker_scene.h"
#include "support/file_system.h"
#include "worker/worker.h"

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
    WorkerScene scene;
    bool looked = false;
    const auto whenReady = scene.onReady;
    scene.onReady = [&] {
        looked = true;
        EXPECT_TRUE(IsSet(scene.ready));
        EXPECT_EQ(ReadStatusRecord(scene.jobDirectory), kAuthorized);
        EXPECT_EQ(ReadFileContent(scene.StagingDirectory() / L"installer.exe"),
                  ReadFileContent(scene.installer));
        whenReady();
    };
    EXPECT_EQ(RunWorker(scene.arguments), 0);
    EXPECT_TRUE(looked);
    EXPECT_EQ(scene.status.records, (std::vector{kAuthorized, kInstalling, kSucceeded}));
}

TEST(WorkerHandshake, WaitsThreeMinutesForTheCommitAndThenTenSecondsForTheApplication) {
    WorkerScene scene;
    RunWorker(scene.arguments);
    EXPECT_EQ(scene.CommitWaits(), std::vector<DWORD>{kThreeMinutes});
    const std::vector<DWORD> parentWaits = scene.time.WaitsForProcess(scene.application.id);
    // The scans for running instances look at the ended application once more.
    ASSERT_FALSE(parentWaits.empty());
    EXPECT_EQ(parentWaits.front(), kTenSeconds);
}

TEST(WorkerHandshake, NeverSetsTheCommitEvent) {
    WorkerScene scene;
    scene.LetBrokerNeverCommit();
    RunWorker(scene.arguments);
    EXPECT_FALSE(IsSet(scene.commit));
    EXPECT_TRUE(IsSet(scene.ready));
}

TEST(WorkerHandshake, ResetsNeitherEvent) {
    WorkerScene scene;
    EXPECT_EQ(RunWorker(scene.arguments), 0);
    EXPECT_TRUE(IsSet(scene.commit));
    EXPECT_TRUE(IsSet(scene.ready));
}

// Commits, after which the wait for the application, which has exited, ends with this result.
void CommitAndForce(WorkerScene& scene, DWORD result) {
    scene.onReady = [&scene, result] {
        scene.time.After(0, [&scene, result] {
            scene.application.End();
            SetEvent(scene.commit.get());
            scene.time.forcedResult = result;
        });
    };
}

struct NoCommit {
    const char* name;
    ULONGLONG duration;
    void (*arrange)(WorkerScene& scene);
};

const NoCommit kNoCommits[] = {
    {"TheBrokerNeverCommits", kThreeMinutes,
     [](WorkerScene& scene) { scene.LetBrokerNeverCommit(); }},
    {"TheBrokerNeverCommitsThoughTheApplicationExits", kThreeMinutes,
     [](WorkerScene& scene) { scene.onReady = [&scene] { scene.application.End(); }; }},
    {"TheCommitComesTooLate", kThreeMinutes,
     [](WorkerScene& scene) {
         scene.onReady = [&scene] {
             scene.time.After(kThreeMinutes + 1, [&scene] { SetEvent(scene.commit.get()); });
         };
     }},
    {"TheWaitForTheCommitFails", kThreeMinutes,
     [](WorkerScene& scene) {
         scene.onReady = [&scene] { scene.time.forcedResult = WAIT_FAILED; };
     }},
    {"TheCommitIsAbandoned", kThreeMinutes,
     [](WorkerScene& scene) {
         scene.onReady = [&scene] { scene.time.forcedResult = WAIT_ABANDONED; };
     }},
    {"TheApplicationStaysOpen", kTenSeconds,
     [](WorkerScene& scene) { scene.onReady = [&scene] { SetEvent(scene.commit.get()); }; }},
    {"TheApplicationExitsTooLate", kTenSeconds,
     [](WorkerScene& scene) {
         scene.onReady = [&scene] {
             SetEvent(scene.commit.get());
             scene.time.After(kTenSeconds + 1, [&scene] { scene.application.End(); });
         };
     }},
    {"TheWaitForTheApplicationFails", kTenSeconds,
     [](WorkerScene& scene) { CommitAndForce(scene, WAIT_FAILED); }},
    {"TheApplicationIsAbandoned", kTenSeconds,
     [](WorkerScene& scene) { CommitAndForce(scene, WAIT_ABANDONED); }},
};

struct WorkerWithoutCommit : testing::TestWithParam<NoCommit> {};

TEST_P(WorkerWithoutCommit, CancelsAndRemovesTheStagingDirectory) {
    WorkerScene scene;
    const auto before = ReadTreeContent(scene.installDirectory);
    GetParam().arrange(scene);
    EXPECT_EQ(RunWorker(scene.arguments), 2);
    EXPECT_EQ(scene.status.records, (std::vector{kAuthorized, kCancelled}));
    EXPECT_EQ(ReadStatusRecord(scene.jobDirectory), kCancelled);
    EXPECT_FALSE(PathExists(scene.StagingDirectory()));
    EXPECT_EQ(scene.time.Passed(), GetParam().duration);
    EXPECT_TRUE(scene.processes.starts.empty());
    EXPECT_EQ(ReadTreeContent(scene.installDirectory), before);
}

INSTANTIATE_TEST_SUITE_P(When, WorkerWithoutCommit, testing::ValuesIn(kNoCommits),
                         [](const auto& test) { return test.param.name; });

TEST(WorkerHandshake, DoesNotWaitForTheApplicationWithoutACommit) {
    WorkerScene scene;
    scene.LetBrokerNeverCommit();
    RunWorker(scene.arguments);
    EXPECT_TRUE(scene.time.WaitsForProcess(scene.application.id).empty());
}

TEST(WorkerHandshake, TakesTheCommitAndTheApplicationsExitInTheLastMoment) {
    WorkerScene scene;
    scene.onReady = [&] {
        scene.time.After(kThreeMinutes, [&] { SetEvent(scene.commit.get()); });
        scene.time.After(kThreeMinutes + kTenSeconds, [&] { scene.application.End(); });
    };
    EXPECT_EQ(RunWorker(scene.arguments), 0);
    EXPECT_EQ(scene.status.records.back(), kSucceeded);
}

TEST(WorkerCancellation, LeavesTheStagingDirectoryWhenItCannotBeRecorded) {
    WorkerScene scene;
    scene.LetBrokerNeverCommit();
    scene.faults.unwritableStates = {"cancelled"};
    EXPECT_THAT([&] { RunWorker(scene.arguments); }, RaisesError("Cannot write update status"));
    EXPECT_TRUE(PathExists(scene.StagingDirectory() / L"installer.exe"));
}

TEST(WorkerCancellation, RaisesWhenTheStagingDirectoryCannotBeRemoved) {
    WorkerScene scene;
    UniqueHandle held;
    scene.onReady = [&] {
        const std::filesystem::path copy = scene.StagingDirectory() / L"installer.exe";
        held = HoldFile(copy);
    };
    EXPECT_THAT([&] { RunWorker(scene.arguments); }, RaisesFileSystemError("remove_all"));
    EXPECT_EQ(scene.status.records.back(), kCancelled);
}

TEST(WorkerCancellation, RemovesWhateverTheStagingDirectoryHolds) {
    WorkerScene scene;
    scene.onReady = [&] {
        WriteFileContent(scene.StagingDirectory() / L"backup" / L"data" / L"\u6DF1 x.bin", "x");
        SetFileAttributesW((scene.StagingDirectory() / L"installer.exe").c_str(),
                           FILE_ATTRIBUTE_READONLY);
    };
    EXPECT_EQ(RunWorker(scene.arguments), 2);
    EXPECT_FALSE(PathExists(scene.StagingDirectory()));
}

TEST(WorkerCancellation, AcceptsThatTheStagingDirectoryIsGoneAlready) {
    WorkerScene scene;
    scene.onReady = [&] { RemoveTree(scene.StagingDirectory()); };
    EXPECT_EQ(RunWorker(scene.arguments), 2);
    EXPECT_EQ(scene.status.records.back(), kCancelled);
}

struct FailureAfterStaging {
    const char* name;
    const char* message;
    void (*arrange)(WorkerScene& scene);
};

const FailureAfterStaging kFailuresAfterStaging[] = {
    {"AnotherSize", "Protected installer size or SHA256 mismatch",
     [](WorkerScene& scene) { scene.arguments[kSizeOption] = L"1"; }},
    {"AnotherDigest", "Protected installer size or SHA256 mismatch",
     [](WorkerScene& scene) { scene.arguments[kSha256Option] = std::wstring(64, L'0'); }},
    {"NoRecord", "Cannot write update status",
     [](WorkerScene& scene) { scene.faults.unwritableStates = {"authorized"}; }},
};

struct WorkerFailingAfterStaging : testing::TestWithParam<FailureAfterStaging> {};

TEST_P(WorkerFailingAfterStaging, LeavesTheCopyAndIsNeverReady) {
    WorkerScene scene;
    GetParam().arrange(scene);
    EXPECT_THAT([&] { RunWorker(scene.arguments); }, RaisesError(GetParam().message));
    EXPECT_TRUE(PathExists(scene.StagingDirectory() / L"installer.exe"));
    EXPECT_FALSE(IsSet(scene.ready));
    EXPECT_TRUE(scene.status.records.empty());
}

INSTANTIATE_TEST_SUITE_P(For, WorkerFailingAfterStaging, testing::ValuesIn(kFailuresAfterStaging),
                         [](const auto& test) { return test.param.name; });

TEST(WorkerStaging, LeavesTheEmptyDirectoryWhenTheSetupProgramCannotBeCopied) {
    WorkerScene scene;
    scene.arguments[kInstallerOption] = scene.directory.path / L"missing.exe";
    EXPECT_THAT([&] { RunWorker(scene.arguments); }, RaisesFileSystemError("copy_file"));
    EXPECT_TRUE(ReadTreeContent(scene.StagingDirectory()).empty());
    EXPECT_FALSE(IsSet(scene.ready));
}

TEST(WorkerStaging, AcceptsASizeWithLettersBehindIt) {
    WorkerScene scene;
    scene.arguments[kSizeOption] += L"bytes";
    EXPECT_EQ(RunWorker(scene.arguments), 0);
}

}  // namespace
}  // namespace updater
