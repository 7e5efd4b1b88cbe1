#include <gtest/gtest.h>

#include "broker/broker.h"
#include "broker/broker_world.h"
#include "fixtures/file_content.h"
#include "fixtures/raised_errors.h"
#include "fixtures/updater_box.h"
#include "support/file_system.h"
#include "support/status_file.h"
#include "support/text_conversion.h"

namespace updater {
namespace {

struct BrokerAfterWorker : testing::TestWithParam<UINT> {};

TEST_P(BrokerAfterWorker, ReturnsItsExitCodeAndRestartsTheApplicationWhateverItIs) {
    BrokerWorld world;
    world.LetWorkerEndWith(GetParam());
    EXPECT_EQ(RunBroker(world.arguments), static_cast<int>(GetParam()));
    EXPECT_EQ(world.processes.starts.size(), 1U);
    EXPECT_EQ(world.errorBoxes.size(), GetParam() == 0 ? 0U : 1U);
}

INSTANTIATE_TEST_SUITE_P(ExitCode, BrokerAfterWorker,
                         testing::Values(0U, 1U, 2U, 3U, 259U, 0xC0000005U));

TEST(BrokerAfterCommit, WaitsForTheWorkerWithoutALimit) {
    BrokerWorld world;
    world.onReady = [&] { world.application.End(); };
    world.onCommit = [&] {
        constexpr ULONGLONG kYear = 31'536'000'000;
        world.time.After(kYear, [&] { world.worker.End(0); });
    };
    EXPECT_EQ(RunBroker(world.arguments), 0);
    EXPECT_EQ(world.time.WaitsForProcess(world.worker.id).back(), DWORD{INFINITE});
}

TEST(BrokerAfterCommit, TakesAnUnreadableExitCodeAsOne) {
    BrokerWorld world;
    world.LetWorkerEndWith(0);
    world.faults.exitCodeUnreadable = true;
    EXPECT_EQ(RunBroker(world.arguments), 1);
    EXPECT_EQ(world.errorBoxes.size(), 1U);
}

TEST(BrokerAfterCommit, WritesNoStatusRecord) {
    BrokerWorld world;
    world.LetWorkerEndWith(1);
    RunBroker(world.arguments);
    EXPECT_EQ(world.status.records.back().state, "ready");
}

TEST(BrokerRestart, StartsTheApplicationPlainlyInItsDirectory) {
    BrokerWorld world;
    world.LetWorkerEndWith(0);
    RunBroker(world.arguments);
    ASSERT_EQ(world.processes.starts.size(), 1U);
    const ProcessStart& start = world.processes.starts.front();
    EXPECT_EQ(start.application, world.applicationPath.native());
    EXPECT_EQ(start.commandLine, L"\"" + world.applicationPath.native() + L"\" ");
    EXPECT_EQ(start.workingDirectory, world.installDirectory.native());
    ExpectPlainStart(start);

    AwaitEndOfProcess(start.processId);
    EXPECT_EQ(ReadFileContent(world.installDirectory / L"started.txt"),
              WideToUtf8(world.installDirectory.native() + L"\n\"" +
                         world.applicationPath.native() + L"\" "));
}

TEST(BrokerRestart, UsesTheInstallationDirectoryAsItStandsOnTheCommandLine) {
    BrokerWorld world;
    world.LetWorkerEndWith(0);
    const std::wstring given = world.installDirectory.native() + L"\\.\\";
    world.arguments[kInstallDirOption] = given;
    EXPECT_EQ(RunBroker(world.arguments), 0);
    const ProcessStart& start = world.processes.starts.at(0);
    EXPECT_EQ(start.application, given + L"corvellan.exe");
    EXPECT_EQ(start.commandLine, L"\"" + given + L"corvellan.exe\" ");
    EXPECT_EQ(start.workingDirectory, given);
}

TEST(BrokerRestart, DoesNotWaitForTheApplication) {
    BrokerWorld world;
    world.LetWorkerEndWith(0);
    RunBroker(world.arguments);
    const DWORD restarted = world.processes.starts.at(0).processId;
    EXPECT_TRUE(world.time.WaitsForProcess(restarted).empty());
}

TEST(BrokerRestart, RaisesWhenTheApplicationDoesNotStartWithoutAnErrorBox) {
    for (const UINT workerExitCode : {0U, 1U}) {
        BrokerWorld world;
        world.LetWorkerEndWith(workerExitCode);
        const auto endWorker = world.onCommit;
        world.onCommit = [&] {
            RemoveFile(world.applicationPath);
            endWorker();
        };
        EXPECT_THAT([&] { RunBroker(world.arguments); }, RaisesError("Process launch failed: 2"));
        EXPECT_TRUE(world.Did("read worker's exit code"));
        EXPECT_TRUE(world.errorBoxes.empty());
    }
}

// What becomes of the record then is the business of whoever called the broker.
TEST(BrokerRestart, LeavesTheWorkersRecordWhenTheApplicationDoesNotStart) {
    BrokerWorld world;
    world.LetWorkerEndWith(0);
    const auto endWorker = world.onCommit;
    world.onCommit = [&] {
        RemoveFile(world.applicationPath);
        WriteFileContent(world.jobDirectory / kStatusFile,
                         R"({"state":"succeeded","message":"the worker's","exitCode":0})");
        endWorker();
    };
    EXPECT_THAT([&] { RunBroker(world.arguments); }, RaisesError("Process launch failed: 2"));
    EXPECT_EQ(ReadStatusRecord(world.jobDirectory), (StatusRecord{"succeeded", "the worker's", 0}));
    EXPECT_EQ(world.status.records.back().state, "ready");
}

TEST(BrokerErrorBox, ShowsTheStatusFileAndTheJobDirectory) {
    BrokerWorld world;
    world.LetWorkerEndWith(1);
    const auto endWorker = world.onCommit;
    world.onCommit = [&] {
        WriteUpdateStatus(world.jobDirectory, kStateFailed, "\u5931\u8D25 \"x\"", 1);
        endWorker();
    };
    RunBroker(world.arguments);
    ASSERT_EQ(world.errorBoxes.size(), 1U);
    const ErrorBox& box = world.errorBoxes.front();
    EXPECT_EQ(box.owner, nullptr);
    EXPECT_EQ(box.title, L"Corvellan\u66F4\u65B0");
    EXPECT_EQ(box.style, 0x10U);
    EXPECT_EQ(box.text,
              kUpdaterBoxHeading +
                  std::wstring(L"{\"state\":\"failed\",\"message\":\"\u5931\u8D25 \\\"x\\\"\","
                               L"\"exitCode\":1}\n\n") +
                  world.jobDirectory.native());
}

TEST(BrokerErrorBox, ShowsTheJobDirectoryAsItStandsOnTheCommandLine) {
    BrokerWorld world;
    world.LetWorkerEndWith(2);
    const auto endWorker = world.onCommit;
    world.onCommit = [&] {
        RemoveFile(world.jobDirectory / kStatusFile);
        endWorker();
    };
    const std::wstring given = world.jobDirectory.native() + L"/./";
    world.arguments[kJobDirOption] = given;
    RunBroker(world.arguments);
    EXPECT_EQ(world.errorBoxes.at(0).text, kUpdaterBoxHeading + L"\n\n" + given);
}

}  // namespace
}  // namespace updater
