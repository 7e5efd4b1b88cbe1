#include <gtest/gtest.h>

#include "broker/broker.h"
#include "broker/broker_world.h"
#include "fixtures/file_content.h"
#include "fixtures/processes/expected_records.h"
#include "fixtures/raised_errors.h"
#include "support/file_system.h"
#include "support/status_file.h"

namespace updater {
namespace {

constexpr DWORD kRound = 250;

const StatusRecord kTimedOut = {"cancelled", "Application did not exit; update cancelled", 2};

void CreateCancelFile(const BrokerWorld& world) {
    WriteFileContent(world.jobDirectory / L"cancel", "");
}

// What the broker does in none of the ends but the commit.
void ExpectNoCommit(const BrokerWorld& world) {
    EXPECT_FALSE(world.Did("set commit event"));
    EXPECT_FALSE(world.Did("start application"));
    EXPECT_TRUE(world.errorBoxes.empty());
}

TEST(BrokerWaiting, ReportsReadyBeforeItWaits) {
    BrokerWorld world;
    world.onReady = [&] { EXPECT_TRUE(world.time.WaitsForProcess(world.application.id).empty()); };
    world.worker.End(1);
    world.onLaunch = [&] { world.ReportAuthorized(); };
    EXPECT_EQ(RunBroker(world.arguments), 1);
    EXPECT_EQ(world.status.records.back(), kReady);
}

TEST(BrokerWaiting, LooksAtWorkerAndApplicationInRoundsOfAQuarterOfASecond) {
    BrokerWorld world;
    world.onReady = [&] { world.time.After(3 * kRound + 1, [&] { world.application.End(); }); };
    world.onCommit = [&] { world.worker.End(0); };
    EXPECT_EQ(RunBroker(world.arguments), 0);
    EXPECT_EQ(world.time.WaitsForProcess(world.application.id), std::vector<DWORD>(4, kRound));
    EXPECT_EQ(world.time.WaitsForProcess(world.worker.id),
              (std::vector<DWORD>{0, 0, 0, 0, INFINITE}));
}

TEST(BrokerWaiting, CommitsOnlyAfterTheApplicationHasExited) {
    BrokerWorld world;
    world.onReady = [&] { world.time.After(60000, [&] { world.application.End(); }); };
    world.onCommit = [&] {
        EXPECT_EQ(world.time.Passed(), 60000U);
        EXPECT_EQ(WaitForSingleObjectEx(world.application.process.get(), 0, FALSE), WAIT_OBJECT_0);
        world.worker.End(0);
    };
    EXPECT_EQ(RunBroker(world.arguments), 0);
    EXPECT_TRUE(world.Did("set commit event"));
}

TEST(BrokerWaiting, GivesUpThreeMinutesAfterTheReadyRecord) {
    BrokerWorld world;
    world.onLaunch = [&] { world.time.After(5000, [&] { world.ReportAuthorized(); }); };
    EXPECT_EQ(RunBroker(world.arguments), 2);
    EXPECT_EQ(world.time.Passed(), 5000 + kThreeMinutes);
    EXPECT_EQ(world.time.WaitsForProcess(world.application.id),
              std::vector<DWORD>(kThreeMinutes / kRound, kRound));
    EXPECT_EQ(world.status.records, (std::vector{kAuthorized, kReady, kTimedOut}));
    EXPECT_EQ(ReadStatusRecord(world.jobDirectory), kTimedOut);
    ExpectNoCommit(world);
}

TEST(BrokerWaiting, CommitsWhenTheApplicationExitsInTheLastMoment) {
    BrokerWorld world;
    world.onReady = [&] { world.time.After(kThreeMinutes, [&] { world.application.End(); }); };
    world.onCommit = [&] { world.worker.End(2); };
    EXPECT_EQ(RunBroker(world.arguments), 2);
    EXPECT_TRUE(world.Did("set commit event"));
    EXPECT_TRUE(world.Did("show error box"));
}

TEST(BrokerWaiting, GivesUpAtOnceWhenTheDeadlineHasPassedAlready) {
    for (const ULONGLONG late : {ULONGLONG{kThreeMinutes}, ULONGLONG{kThreeMinutes + 1}}) {
        BrokerWorld world;
        ULONGLONG clock = 0;
        ScopedReplacement<decltype(GetTickCount64)> jumping(doubles::GetTickCount64, [&] {
            const ULONGLONG answer = clock;
            clock += late;
            return answer;
        });
        // None of the three would go unnoticed in a round.
        CreateCancelFile(world);
        world.onReady = [&] { world.application.End(); };
        EXPECT_EQ(RunBroker(world.arguments), 2);
        EXPECT_EQ(world.status.records.back(), kTimedOut);
        EXPECT_TRUE(world.time.WaitsForProcess(world.application.id).empty());
        EXPECT_TRUE(world.time.WaitsForProcess(world.worker.id).empty());
        ExpectNoCommit(world);
    }
}

TEST(BrokerWaiting, PlaysOneMoreRoundJustBeforeTheDeadline) {
    BrokerWorld world;
    ULONGLONG clock = 0;
    ScopedReplacement<decltype(GetTickCount64)> jumping(doubles::GetTickCount64, [&] {
        const ULONGLONG answer = clock;
        clock += kThreeMinutes - 1;
        return answer;
    });
    EXPECT_EQ(RunBroker(world.arguments), 2);
    EXPECT_EQ(world.time.WaitsForProcess(world.application.id), std::vector<DWORD>(1, kRound));
    EXPECT_EQ(world.status.records.back(), kTimedOut);
}

TEST(BrokerWaiting, TakesAFailedWaitAsStillRunning) {
    for (const DWORD result : {DWORD{WAIT_FAILED}, DWORD{WAIT_ABANDONED}}) {
        BrokerWorld world;
        world.onReady = [&] {
            world.application.End();
            world.worker.End(0);
            world.time.forcedResult = result;
        };
        EXPECT_EQ(RunBroker(world.arguments), 2);
        EXPECT_EQ(world.status.records.back(), kTimedOut);
        ExpectNoCommit(world);
    }
}

TEST(BrokerWaiting, EndsWhenTheWorkerEnds) {
    BrokerWorld world;
    const StatusRecord workersOwn = {"failed", "Something the worker tells", 1};
    world.onReady = [&] {
        world.time.After(10001, [&] {
            WriteFileContent(world.jobDirectory / kStatusFile,
                             R"({"state":"failed","message":"Something the worker tells",)"
                             R"("exitCode":1})");
            world.worker.End(1);
        });
    };
    EXPECT_EQ(RunBroker(world.arguments), 1);
    EXPECT_EQ(world.time.Passed(), 10250U);
    EXPECT_EQ(ReadStatusRecord(world.jobDirectory), workersOwn);
    EXPECT_EQ(world.status.records, (std::vector{kAuthorized, kReady}));
    ExpectNoCommit(world);
}

TEST(BrokerWaiting, NoticesTheWorkersEndBeforeTheApplications) {
    BrokerWorld world;
    world.onReady = [&] {
        world.application.End();
        world.worker.End(0);
    };
    EXPECT_EQ(RunBroker(world.arguments), 1);
    EXPECT_EQ(world.status.records.back(), kReady);
    ExpectNoCommit(world);
}

TEST(BrokerWaiting, EndsWithinARoundAfterTheCancelMarkerAppears) {
    BrokerWorld world;
    world.onReady = [&] { world.time.After(5001, [&] { CreateCancelFile(world); }); };
    EXPECT_EQ(RunBroker(world.arguments), 2);
    EXPECT_EQ(world.time.Passed(), 5250U);
    EXPECT_EQ(world.status.records, (std::vector{kAuthorized, kReady}));
    EXPECT_TRUE(PathExists(world.jobDirectory / L"cancel"));
    ExpectNoCommit(world);
}

TEST(BrokerWaiting, TakesADirectoryAsCancelMarkerToo) {
    BrokerWorld world;
    CreateDirectories(world.jobDirectory / L"cancel");
    EXPECT_EQ(RunBroker(world.arguments), 2);
    EXPECT_EQ(world.status.records.back(), kReady);
    EXPECT_TRUE(world.time.WaitsForProcess(world.application.id).empty());
    ExpectNoCommit(world);
}

TEST(BrokerWaiting, LetsTheCancelMarkerWinOverTheEndsOfApplicationAndWorker) {
    BrokerWorld world;
    world.onReady = [&] {
        CreateCancelFile(world);
        world.application.End();
        world.worker.End(1);
    };
    EXPECT_EQ(RunBroker(world.arguments), 2);
    EXPECT_EQ(world.status.records.back(), kReady);
    ExpectNoCommit(world);
}

TEST(BrokerWaiting, IgnoresAMarkerThatAppearsWhileTheApplicationExits) {
    BrokerWorld world;
    world.onReady = [&] {
        world.time.After(kRound / 2, [&] {
            CreateCancelFile(world);
            world.application.End();
        });
    };
    world.onCommit = [&] { world.worker.End(0); };
    EXPECT_EQ(RunBroker(world.arguments), 0);
    EXPECT_TRUE(world.Did("set commit event"));
}

TEST(BrokerWaiting, LooksForNoMarkerBeforeTheWorkerIsReady) {
    BrokerWorld world;
    CreateCancelFile(world);
    world.onLaunch = [&] { world.worker.End(1); };
    EXPECT_EQ(RunBroker(world.arguments), 1);
}

TEST(BrokerWaiting, RaisesWhenTheMarkerCannotBeLookedFor) {
    BrokerWorld world;
    world.faults.uninspectableEntry = L"cancel";
    EXPECT_THAT([&] { RunBroker(world.arguments); }, RaisesFileSystemError("exists"));
    EXPECT_EQ(world.status.records.back(), kReady);
    ExpectNoCommit(world);
}

TEST(BrokerWaiting, RaisesWhenAStatusRecordCannotBeWritten) {
    for (const char* state : {kStateReady, kStateCancelled}) {
        BrokerWorld world;
        world.faults.unwritableState = state;
        EXPECT_THAT([&] { RunBroker(world.arguments); }, RaisesError("Cannot write update status"));
        ExpectNoCommit(world);
    }
}

}  // namespace
}  // namespace updater
