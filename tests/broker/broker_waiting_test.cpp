#include <gtest/gtest.h>

#include "broker/broker.h"
#include "fixtures/file_content.h"
#include "fixtures/processes/expected_records.h"
#include "fixtures/raised_errors.h"
#include "fixtures/scenes/broker_scene.h"
#include "support/file_system.h"
#include "support/status_file.h"

namespace updater {
namespace {

constexpr DWORD kRound = 250;

const StatusRecord kTimedOut = {"cancelled", "Application did not exit; update cancelled", 2};

void CreateCancelFile(const BrokerScene& scene) {
    WriteFileContent(scene.jobDirectory / L"cancel", "");
}

// What the broker does in none of the ends but the commit.
void ExpectNoCommit(const BrokerScene& scene) {
    EXPECT_FALSE(scene.Did("set commit event"));
    EXPECT_FALSE(scene.Did("start application"));
    EXPECT_TRUE(scene.errorBoxes.empty());
}

TEST(BrokerWaiting, ReportsReadyBeforeItWaits) {
    BrokerScene scene;
    scene.onReady = [&] { EXPECT_TRUE(scene.time.WaitsForProcess(scene.application.id).empty()); };
    scene.worker.End(1);
    scene.onLaunch = [&] { scene.ReportAuthorized(); };
    EXPECT_EQ(RunBroker(scene.arguments), 1);
    EXPECT_EQ(scene.status.records.back(), kReady);
}

TEST(BrokerWaiting, LooksAtWorkerAndApplicationInRoundsOfAQuarterOfASecond) {
    BrokerScene scene;
    scene.onReady = [&] { scene.time.After(3 * kRound + 1, [&] { scene.application.End(); }); };
    scene.onCommit = [&] { scene.worker.End(0); };
    EXPECT_EQ(RunBroker(scene.arguments), 0);
    EXPECT_EQ(scene.time.WaitsForProcess(scene.application.id), std::vector<DWORD>(4, kRound));
    EXPECT_EQ(scene.time.WaitsForProcess(scene.worker.id),
              (std::vector<DWORD>{0, 0, 0, 0, INFINITE}));
}

TEST(BrokerWaiting, CommitsOnlyAfterTheApplicationHasExited) {
    BrokerScene scene;
    scene.onReady = [&] { scene.time.After(60000, [&] { scene.application.End(); }); };
    scene.onCommit = [&] {
        EXPECT_EQ(scene.time.Passed(), 60000U);
        EXPECT_EQ(WaitForSingleObjectEx(scene.application.process.get(), 0, FALSE), WAIT_OBJECT_0);
        scene.worker.End(0);
    };
    EXPECT_EQ(RunBroker(scene.arguments), 0);
    EXPECT_TRUE(scene.Did("set commit event"));
}

TEST(BrokerWaiting, GivesUpThreeMinutesAfterTheReadyRecord) {
    BrokerScene scene;
    scene.onLaunch = [&] { scene.time.After(5000, [&] { scene.ReportAuthorized(); }); };
    EXPECT_EQ(RunBroker(scene.arguments), 2);
    EXPECT_EQ(scene.time.Passed(), 5000 + kThreeMinutes);
    EXPECT_EQ(scene.time.WaitsForProcess(scene.application.id),
              std::vector<DWORD>(kThreeMinutes / kRound, kRound));
    EXPECT_EQ(scene.status.records, (std::vector{kAuthorized, kReady, kTimedOut}));
    EXPECT_EQ(ReadStatusRecord(scene.jobDirectory), kTimedOut);
    ExpectNoCommit(scene);
}

TEST(BrokerWaiting, TakesTheDeadlineFromTheEndOfTheReadyRecord) {
    BrokerScene scene;
    std::vector<std::string> before;
    ScopedReplacement<decltype(GetTickCount64)> clock(doubles::GetTickCount64, [&] {
        before.push_back(scene.actions.back());
        return scene.time.now;
    });
    constexpr ULONGLONG kSlowRecord = 10000;
    scene.onReady = [&] { scene.time.now += kSlowRecord; };
    EXPECT_EQ(RunBroker(scene.arguments), 2);
    EXPECT_EQ(scene.time.Passed(), kSlowRecord + kThreeMinutes);
    ASSERT_FALSE(before.empty());
    EXPECT_EQ(before.front(), "write ready");
    EXPECT_EQ(scene.time.WaitsForProcess(scene.application.id).size(), kThreeMinutes / kRound);
}

// A clock of 32 bits shows 0 again after some 50 days.
TEST(BrokerWaiting, LastsThreeMinutesWhateverTheClockShows) {
    constexpr ULONGLONG k32Bits = 0x1'0000'0000;
    for (const ULONGLONG start : {ULONGLONG{0}, k32Bits - kThreeMinutes / 2, k32Bits - 1,
                                  ULONGLONG{0x7FFF'FFFF'0000'0000}}) {
        SCOPED_TRACE(start);
        BrokerScene scene;
        scene.time.now = start;
        EXPECT_EQ(RunBroker(scene.arguments), 2);
        EXPECT_EQ(scene.time.now - start, kThreeMinutes);
        EXPECT_EQ(scene.status.records.back(), kTimedOut);
    }
}

TEST(BrokerWaiting, CommitsWhenTheApplicationExitsInTheLastMoment) {
    BrokerScene scene;
    scene.onReady = [&] { scene.time.After(kThreeMinutes, [&] { scene.application.End(); }); };
    scene.onCommit = [&] { scene.worker.End(2); };
    EXPECT_EQ(RunBroker(scene.arguments), 2);
    EXPECT_TRUE(scene.Did("set commit event"));
    EXPECT_TRUE(scene.Did("show error box"));
}

TEST(BrokerWaiting, GivesUpAtOnceWhenTheDeadlineHasPassedAlready) {
    for (const ULONGLONG late : {ULONGLONG{kThreeMinutes}, ULONGLONG{kThreeMinutes + 1}}) {
        BrokerScene scene;
        ULONGLONG clock = 0;
        ScopedReplacement<decltype(GetTickCount64)> jumping(doubles::GetTickCount64, [&] {
            const ULONGLONG answer = clock;
            clock += late;
            return answer;
        });
        // None of the three would go unnoticed in a round.
        CreateCancelFile(scene);
        scene.onReady = [&] { scene.application.End(); };
        EXPECT_EQ(RunBroker(scene.arguments), 2);
        EXPECT_EQ(scene.status.records.back(), kTimedOut);
        EXPECT_TRUE(scene.time.WaitsForProcess(scene.application.id).empty());
        EXPECT_TRUE(scene.time.WaitsForProcess(scene.worker.id).empty());
        ExpectNoCommit(scene);
    }
}

TEST(BrokerWaiting, PlaysOneMoreRoundJustBeforeTheDeadline) {
    BrokerScene scene;
    ULONGLONG clock = 0;
    ScopedReplacement<decltype(GetTickCount64)> jumping(doubles::GetTickCount64, [&] {
        const ULONGLONG answer = clock;
        clock += kThreeMinutes - 1;
        return answer;
    });
    EXPECT_EQ(RunBroker(scene.arguments), 2);
    EXPECT_EQ(scene.time.WaitsForProcess(scene.application.id), std::vector<DWORD>(1, kRound));
    EXPECT_EQ(scene.status.records.back(), kTimedOut);
}

TEST(BrokerWaiting, TakesAFailedWaitAsStillRunning) {
    for (const DWORD result : {DWORD{WAIT_FAILED}, DWORD{WAIT_ABANDONED}}) {
        BrokerScene scene;
        scene.onReady = [&] {
            scene.application.End();
            scene.worker.End(0);
            scene.time.forcedResult = result;
        };
        EXPECT_EQ(RunBroker(scene.arguments), 2);
        EXPECT_EQ(scene.status.records.back(), kTimedOut);
        ExpectNoCommit(scene);
    }
}

TEST(BrokerWaiting, EndsWhenTheWorkerEnds) {
    BrokerScene scene;
    const StatusRecord workersOwn = {"failed", "Something the worker tells", 1};
    scene.onReady = [&] {
        scene.time.After(10001, [&] {
            WriteFileContent(scene.jobDirectory / kStatusFile,
                             R"({"state":"failed","message":"Something the worker tells",)"
                             R"("exitCode":1})");
            scene.worker.End(1);
        });
    };
    EXPECT_EQ(RunBroker(scene.arguments), 1);
    EXPECT_EQ(scene.time.Passed(), 10250U);
    EXPECT_EQ(ReadStatusRecord(scene.jobDirectory), workersOwn);
    EXPECT_EQ(scene.status.records, (std::vector{kAuthorized, kReady}));
    ExpectNoCommit(scene);
}

TEST(BrokerWaiting, NoticesTheWorkersEndBeforeTheApplications) {
    BrokerScene scene;
    scene.onReady = [&] {
        scene.application.End();
        scene.worker.End(0);
    };
    EXPECT_EQ(RunBroker(scene.arguments), 1);
    EXPECT_EQ(scene.status.records.back(), kReady);
    ExpectNoCommit(scene);
}

TEST(BrokerWaiting, EndsWithinARoundAfterTheCancelMarkerAppears) {
    BrokerScene scene;
    scene.onReady = [&] { scene.time.After(5001, [&] { CreateCancelFile(scene); }); };
    EXPECT_EQ(RunBroker(scene.arguments), 2);
    EXPECT_EQ(scene.time.Passed(), 5250U);
    EXPECT_EQ(scene.status.records, (std::vector{kAuthorized, kReady}));
    EXPECT_TRUE(PathExists(scene.jobDirectory / L"cancel"));
    ExpectNoCommit(scene);
}

TEST(BrokerWaiting, TakesADirectoryAsCancelMarkerToo) {
    BrokerScene scene;
    CreateDirectories(scene.jobDirectory / L"cancel");
    EXPECT_EQ(RunBroker(scene.arguments), 2);
    EXPECT_EQ(scene.status.records.back(), kReady);
    EXPECT_TRUE(scene.time.WaitsForProcess(scene.application.id).empty());
    ExpectNoCommit(scene);
}

TEST(BrokerWaiting, LetsTheCancelMarkerWinOverTheEndsOfApplicationAndWorker) {
    BrokerScene scene;
    scene.onReady = [&] {
        CreateCancelFile(scene);
        scene.application.End();
        scene.worker.End(1);
    };
    EXPECT_EQ(RunBroker(scene.arguments), 2);
    EXPECT_EQ(scene.status.records.back(), kReady);
    ExpectNoCommit(scene);
}

TEST(BrokerWaiting, IgnoresAMarkerThatAppearsWhileTheApplicationExits) {
    BrokerScene scene;
    scene.onReady = [&] {
        scene.time.After(kRound / 2, [&] {
            CreateCancelFile(scene);
            scene.application.End();
        });
    };
    scene.onCommit = [&] { scene.worker.End(0); };
    EXPECT_EQ(RunBroker(scene.arguments), 0);
    EXPECT_TRUE(scene.Did("set commit event"));
}

TEST(BrokerWaiting, LooksForNoMarkerBeforeTheWorkerIsReady) {
    BrokerScene scene;
    CreateCancelFile(scene);
    scene.onLaunch = [&] { scene.worker.End(1); };
    EXPECT_EQ(RunBroker(scene.arguments), 1);
}

TEST(BrokerWaiting, RaisesWhenTheMarkerCannotBeLookedFor) {
    BrokerScene scene;
    scene.faults.uninspectableEntry = L"cancel";
    EXPECT_THAT([&] { RunBroker(scene.arguments); }, RaisesFileSystemError("exists"));
    EXPECT_EQ(scene.status.records.back(), kReady);
    ExpectNoCommit(scene);
}

TEST(BrokerWaiting, RaisesWhenAStatusRecordCannotBeWritten) {
    for (const char* state : {kStateReady, kStateCancelled}) {
        BrokerScene scene;
        scene.faults.unwritableStates = {state};
        EXPECT_THAT([&] { RunBroker(scene.arguments); }, RaisesError("Cannot write update status"));
        ExpectNoCommit(scene);
    }
}

}  // namespace
}  // namespace updater
