#include <gtest/gtest.h>

#include "broker/broker.h"
#include "fixtures/application_names.h"
#include "fixtures/file_content.h"
#include "fixtures/raised_errors.h"
#include "fixtures/scenes/broker_scene.h"
#include "fixtures/updater_box.h"
#include "support/file_system.h"
#include "support/status_file.h"
#include "support/text_conversion.h"

namespace updater {
namespace {

struct BrokerAfterWorker : testing::TestWithParam<UINT> {};

TEST_P(BrokerAfterWorker, ReturnsItsExitCodeAndRestartsTheApplicationWhateverItIs) {
    BrokerScene scene;
    scene.LetWorkerEndWith(GetParam());
    EXPECT_EQ(RunBroker(scene.arguments), static_cast<int>(GetParam()));
    EXPECT_EQ(scene.processes.starts.size(), 1U);
    EXPECT_EQ(scene.errorBoxes.size(), GetParam() == 0 ? 0U : 1U);
}

INSTANTIATE_TEST_SUITE_P(ExitCode, BrokerAfterWorker,
                         testing::Values(0U, 1U, 2U, 3U, 259U, 0xC0000005U));

TEST(BrokerAfterCommit, WaitsForTheWorkerWithoutALimit) {
    BrokerScene scene;
    scene.onReady = [&] { scene.application.End(); };
    scene.onCommit = [&] {
        constexpr ULONGLONG kYear = 31'536'000'000;
        scene.time.After(kYear, [&] { scene.worker.End(0); });
    };
    EXPECT_EQ(RunBroker(scene.arguments), 0);
    EXPECT_EQ(scene.time.WaitsForProcess(scene.worker.id).back(), DWORD{INFINITE});
}

TEST(BrokerAfterCommit, TakesAnUnreadableExitCodeAsOne) {
    BrokerScene scene;
    scene.LetWorkerEndWith(0);
    scene.faults.exitCodeUnreadable = true;
    EXPECT_EQ(RunBroker(scene.arguments), 1);
    EXPECT_EQ(scene.errorBoxes.size(), 1U);
}

TEST(BrokerAfterCommit, WritesNoStatusRecord) {
    BrokerScene scene;
    scene.LetWorkerEndWith(1);
    RunBroker(scene.arguments);
    EXPECT_EQ(scene.status.records.back().state, "ready");
}

TEST(BrokerRestart, StartsTheApplicationPlainlyInItsDirectory) {
    BrokerScene scene;
    scene.LetWorkerEndWith(0);
    RunBroker(scene.arguments);
    ASSERT_EQ(scene.processes.starts.size(), 1U);
    const ProcessStart& start = scene.processes.starts.front();
    EXPECT_EQ(start.application, scene.applicationPath.native());
    EXPECT_EQ(start.commandLine, L"\"" + scene.applicationPath.native() + L"\" ");
    EXPECT_EQ(start.workingDirectory, scene.installDirectory.native());
    ExpectPlainStart(start);

    AwaitEndOfProcess(start.processId);
    EXPECT_EQ(ReadFileContent(scene.installDirectory / L"started.txt"),
              WideToUtf8(scene.installDirectory.native() + L"\n\"" +
                         scene.applicationPath.native() + L"\" "));
}

TEST(BrokerRestart, UsesTheInstallationDirectoryAsItStandsOnTheCommandLine) {
    BrokerScene scene;
    scene.LetWorkerEndWith(0);
    const std::wstring given = scene.installDirectory.native() + L"\\.\\";
    scene.arguments[kInstallDirOption] = given;
    EXPECT_EQ(RunBroker(scene.arguments), 0);
    const ProcessStart& start = scene.processes.starts.at(0);
    EXPECT_EQ(start.application, given + kExecutableName);
    EXPECT_EQ(start.commandLine, L"\"" + given + IDENTITY_EXECUTABLE L"\" ");
    EXPECT_EQ(start.workingDirectory, given);
}

TEST(BrokerRestart, DoesNotWaitForTheApplication) {
    BrokerScene scene;
    scene.LetWorkerEndWith(0);
    RunBroker(scene.arguments);
    const DWORD restarted = scene.processes.starts.at(0).processId;
    EXPECT_TRUE(scene.time.WaitsForProcess(restarted).empty());
}

TEST(BrokerRestart, RaisesWhenTheApplicationDoesNotStartWithoutAnErrorBox) {
    for (const UINT workerExitCode : {0U, 1U}) {
        BrokerScene scene;
        scene.LetWorkerEndWith(workerExitCode);
        const auto endWorker = scene.onCommit;
        scene.onCommit = [&] {
            RemoveFile(scene.applicationPath);
            endWorker();
        };
        EXPECT_THAT([&] { RunBroker(scene.arguments); }, RaisesError("Process launch failed: 2"));
        EXPECT_TRUE(scene.Did("read worker's exit code"));
        EXPECT_TRUE(scene.errorBoxes.empty());
    }
}

// What becomes of the record then is the business of whoever called the broker.
TEST(BrokerRestart, LeavesTheWorkersRecordWhenTheApplicationDoesNotStart) {
    BrokerScene scene;
    scene.LetWorkerEndWith(0);
    const auto endWorker = scene.onCommit;
    scene.onCommit = [&] {
        RemoveFile(scene.applicationPath);
        WriteFileContent(scene.jobDirectory / kStatusFile,
                         R"({"state":"succeeded","message":"the worker's","exitCode":0})");
        endWorker();
    };
    EXPECT_THAT([&] { RunBroker(scene.arguments); }, RaisesError("Process launch failed: 2"));
    EXPECT_EQ(ReadStatusRecord(scene.jobDirectory), (StatusRecord{"succeeded", "the worker's", 0}));
    EXPECT_EQ(scene.status.records.back().state, "ready");
}

TEST(BrokerErrorBox, ShowsTheStatusFileAndTheJobDirectory) {
    BrokerScene scene;
    scene.LetWorkerEndWith(1);
    const auto endWorker = scene.onCommit;
    scene.onCommit = [&] {
        WriteUpdateStatus(scene.jobDirectory, kStateFailed, "\u5931\u8D25 \"x\"", 1);
        endWorker();
    };
    RunBroker(scene.arguments);
    ASSERT_EQ(scene.errorBoxes.size(), 1U);
    const ErrorBox& box = scene.errorBoxes.front();
    EXPECT_EQ(box.owner, nullptr);
    EXPECT_EQ(box.title, L"" IDENTITY_ERROR_TITLE);
    EXPECT_EQ(box.style, 0x10U);
    EXPECT_EQ(box.text,
              kUpdaterBoxHeading +
                  std::wstring(L"{\"state\":\"failed\",\"message\":\"\u5931\u8D25 \\\"x\\\"\","
                               L"\"exitCode\":1}\n\n") +
                  scene.jobDirectory.native());
}

TEST(BrokerErrorBox, ShowsWhatTheStatusFileHoldsAfterTheRestart) {
    for (const std::string content : {"written at the restart", ""}) {
        BrokerScene scene;
        scene.LetWorkerEndWith(1);
        scene.processes.beforeStart = [&](const ProcessStart&) -> std::optional<DWORD> {
            WriteFileContent(scene.jobDirectory / kStatusFile, content);
            return std::nullopt;
        };
        RunBroker(scene.arguments);
        EXPECT_EQ(scene.errorBoxes.at(0).text,
                  kUpdaterBoxHeading + Utf8ToWide(content) + L"\n\n" + scene.jobDirectory.native());
    }
}

TEST(BrokerErrorBox, ShowsTheJobDirectoryAsItStandsOnTheCommandLine) {
    BrokerScene scene;
    scene.LetWorkerEndWith(2);
    const auto endWorker = scene.onCommit;
    scene.onCommit = [&] {
        RemoveFile(scene.jobDirectory / kStatusFile);
        endWorker();
    };
    const std::wstring given = scene.jobDirectory.native() + L"/./";
    scene.arguments[kJobDirOption] = given;
    RunBroker(scene.arguments);
    EXPECT_EQ(scene.errorBoxes.at(0).text, kUpdaterBoxHeading + L"\n\n" + given);
}

}  // namespace
}  // namespace updater
