#include <gtest/gtest.h>

#include <initializer_list>
#include <regex>

#include "broker/broker.h"
#include "broker/broker_world.h"
#include "broker/worker_parameters.h"
#include "fixtures/file_content.h"
#include "fixtures/processes/expected_records.h"
#include "fixtures/raised_errors.h"
#include "support/process_utilities.h"
#include "support/status_file.h"

namespace updater {
namespace {

const StatusRecord kNotReady = {"failed", "Upgrade helper did not become ready", 1};

TEST(BrokerEvents, HaveTheRunsOwnNamesAndAreManuallyResetAndNotSignalled) {
    BrokerWorld world;
    world.faults.launchError = ERROR_CANCELLED;
    RunBroker(world.arguments);
    RunBroker(world.arguments);
    ASSERT_EQ(world.events.size(), 4U);
    const std::wregex form(
        LR"((Local\\CorvellanUpdate-\{[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\})-(ready|commit))");
    std::vector<std::wstring> baseNames;
    for (const EventCreation& event : world.events) {
        std::wsmatch match;
        ASSERT_TRUE(std::regex_match(event.name, match, form));
        baseNames.push_back(match[1]);
        EXPECT_EQ(match[3].str(), baseNames.size() % 2 == 1 ? L"ready" : L"commit");
        EXPECT_FALSE(event.hasSecurityAttributes);
        EXPECT_TRUE(event.manualReset);
        EXPECT_FALSE(event.signalled);
    }
    EXPECT_EQ(baseNames[0], baseNames[1]);
    EXPECT_EQ(baseNames[2], baseNames[3]);
    EXPECT_NE(baseNames[0], baseNames[2]);
}

TEST(BrokerEvents, AreBothTriedBeforeEitherIsMissed) {
    for (const bool readyMissing : {true, false}) {
        BrokerWorld world;
        world.faults.readyEventUnavailable = readyMissing;
        world.faults.commitEventUnavailable = !readyMissing;
        EXPECT_THAT([&] { RunBroker(world.arguments); },
                    RaisesError("Cannot initialize update handshake"));
        EXPECT_EQ(world.events.size(), 2U);
        EXPECT_TRUE(world.launches.empty());
    }
}

TEST(BrokerEvents, AreUsedAsTheyAreWhenTheyExistedBefore) {
    BrokerWorld world;
    world.LetWorkerEndWith(0);
    std::vector<UniqueHandle> earlier;
    ScopedReplacement<decltype(CreateEventW)> existing(
        doubles::CreateEventW,
        [&](LPSECURITY_ATTRIBUTES security, BOOL manual, BOOL signalled, LPCWSTR name) {
            earlier.push_back(OwnHandle(CreateEventW(security, manual, signalled, name)));
            HANDLE handle = world.OnCreateEvent(security, manual, signalled, name);
            EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
            return handle;
        });
    EXPECT_EQ(RunBroker(world.arguments), 0);
    ASSERT_EQ(earlier.size(), 2U);
    for (const UniqueHandle& event : earlier) {
        EXPECT_EQ(WaitForSingleObjectEx(event.get(), 0, FALSE), WAIT_OBJECT_0)
            << "set, and not reset";
    }
}

TEST(BrokerLaunch, AsksTheShellToStartThisProgramElevatedAndHidden) {
    BrokerWorld world;
    world.faults.launchError = ERROR_CANCELLED;
    RunBroker(world.arguments);
    ASSERT_EQ(world.launches.size(), 1U);
    const ElevatedLaunch& launch = world.launches.front();
    EXPECT_EQ(launch.verb, L"runas");
    EXPECT_EQ(launch.file, GetProcessImagePath(GetCurrentProcess()));
    const std::wstring readyName = world.events.front().name;
    const std::wstring baseName = readyName.substr(0, readyName.rfind(L'-'));
    EXPECT_EQ(launch.parameters, BuildWorkerParameters(world.arguments, baseName));

    EXPECT_EQ(launch.info.cbSize, sizeof(SHELLEXECUTEINFOW));
    EXPECT_EQ(launch.info.fMask, 0x40U);
    EXPECT_EQ(launch.info.hwnd, nullptr);
    EXPECT_EQ(launch.info.lpDirectory, nullptr);
    EXPECT_EQ(launch.info.nShow, 0);
    EXPECT_EQ(launch.info.hInstApp, nullptr);
    EXPECT_EQ(launch.info.lpIDList, nullptr);
    EXPECT_EQ(launch.info.lpClass, nullptr);
    EXPECT_EQ(launch.info.hkeyClass, nullptr);
    EXPECT_EQ(launch.info.dwHotKey, 0U);
    EXPECT_EQ(launch.info.hIcon, nullptr);
    EXPECT_EQ(launch.info.hProcess, nullptr);
}

TEST(BrokerLaunch, EndsAsCancelledWhenTheUserDeclines) {
    BrokerWorld world;
    world.faults.launchError = 1223;
    EXPECT_EQ(RunBroker(world.arguments), 2);
    EXPECT_EQ(ReadStatusRecord(world.jobDirectory),
              (StatusRecord{"cancelled", "Administrator authorization cancelled", 1223}));
    EXPECT_EQ(world.status.records.size(), 1U);
}

TEST(BrokerLaunch, EndsAsFailedWithTheNumberOfAnyOtherError) {
    for (const DWORD error : std::initializer_list<DWORD>{0, 2, 5, 1222, 1224, 0x80070005}) {
        SCOPED_TRACE(error);
        BrokerWorld world;
        world.faults.launchError = error;
        EXPECT_EQ(RunBroker(world.arguments), 1);
        EXPECT_EQ(world.status.records,
                  (std::vector<StatusRecord>{
                      {"failed", "Authorization failed", static_cast<int>(error)}}));
        EXPECT_EQ(ReadStatusRecord(world.jobDirectory), world.status.records.front());
    }
}

TEST(BrokerReadyWait, IsForTheEventThenTheWorkerForThreeMinutes) {
    BrokerWorld world;
    std::vector<HANDLE> waitedFor;
    DWORD firstProcess = 0;
    ScopedReplacement<decltype(WaitForMultipleObjects)> wait(
        doubles::WaitForMultipleObjects,
        [&](DWORD count, const HANDLE* objects, BOOL all, DWORD milliseconds) -> DWORD {
            waitedFor.assign(objects, objects + count);
            firstProcess = GetProcessId(objects[count - 1]);
            EXPECT_EQ(all, FALSE);
            EXPECT_EQ(milliseconds, kThreeMinutes);
            return WAIT_TIMEOUT;
        });
    EXPECT_EQ(RunBroker(world.arguments), 1);
    ASSERT_EQ(waitedFor.size(), 2U);
    EXPECT_EQ(waitedFor[0], world.eventHandles[0]);
    EXPECT_EQ(firstProcess, world.worker.id);
}

struct NoReadySignal {
    const char* name;
    void (*arrange)(BrokerWorld& world);
};

const NoReadySignal kNoReadySignals[] = {
    {"TheWorkerEndsFirst",
     [](BrokerWorld& world) {
         world.onLaunch = [&world] { world.time.After(5000, [&world] { world.worker.End(1); }); };
     }},
    {"TheWorkerHasEndedBeforeTheWait",
     [](BrokerWorld& world) { world.onLaunch = [&world] { world.worker.End(0); }; }},
    {"ThreeMinutesPass", [](BrokerWorld& world) { world.LetWorkerBeSilent(); }},
    {"TheSignalComesTooLate",
     [](BrokerWorld& world) {
         world.onLaunch = [&world] {
             world.time.After(kThreeMinutes + 1, [&world] { world.SetReadyEvent(); });
         };
     }},
    {"TheWaitFails",
     [](BrokerWorld& world) {
         world.LetWorkerBeSilent();
         world.time.forcedResult = WAIT_FAILED;
     }},
    {"TheWaitIsAbandoned",
     [](BrokerWorld& world) {
         world.LetWorkerBeSilent();
         world.time.forcedResult = WAIT_ABANDONED_0;
     }},
    {"TheShellGivesNoProcessHandle",
     [](BrokerWorld& world) {
         world.faults.launchGivesNoHandle = true;
         world.onLaunch = [&world] { world.SetReadyEvent(); };
     }},
};

struct BrokerWithoutReadySignal : testing::TestWithParam<NoReadySignal> {};

TEST_P(BrokerWithoutReadySignal, RecordsThatTheWorkerDidNotBecomeReady) {
    BrokerWorld world;
    GetParam().arrange(world);
    EXPECT_EQ(RunBroker(world.arguments), 1);
    EXPECT_EQ(world.status.records, std::vector{kNotReady});
    EXPECT_EQ(ReadStatusRecord(world.jobDirectory), kNotReady);
    EXPECT_FALSE(world.Did("set commit event"));
    EXPECT_FALSE(world.Did("start application"));
    EXPECT_TRUE(world.errorBoxes.empty());
}

TEST_P(BrokerWithoutReadySignal, KeepsAnExistingStatusFile) {
    BrokerWorld world;
    WriteFileContent(world.jobDirectory / L"status.json", "left by an earlier run");
    GetParam().arrange(world);
    EXPECT_EQ(RunBroker(world.arguments), 1);
    EXPECT_TRUE(world.status.records.empty());
    EXPECT_EQ(ReadFileContent(world.jobDirectory / L"status.json"), "left by an earlier run");
}

INSTANTIATE_TEST_SUITE_P(When, BrokerWithoutReadySignal, testing::ValuesIn(kNoReadySignals),
                         [](const auto& test) { return test.param.name; });

TEST(BrokerReadyWait, EndsAtOnceWhenTheShellGivesNoProcessHandle) {
    BrokerWorld world;
    world.faults.launchGivesNoHandle = true;
    world.LetWorkerBeSilent();
    EXPECT_EQ(RunBroker(world.arguments), 1);
    EXPECT_EQ(world.time.Passed(), 0U);
}

TEST(BrokerReadyWait, RaisesWhenTheStatusFileCannotBeLookedFor) {
    BrokerWorld world;
    world.LetWorkerBeSilent();
    world.faults.uninspectableEntry = L"status.json";
    EXPECT_THAT([&] { RunBroker(world.arguments); }, RaisesFileSystemError("exists"));
    EXPECT_TRUE(world.status.records.empty());
}

TEST(BrokerReadyWait, TakesTheSignalInTheLastMoment) {
    BrokerWorld world;
    world.LetWorkerEndWith(0);
    world.onLaunch = [&] { world.time.After(kThreeMinutes, [&] { world.ReportAuthorized(); }); };
    EXPECT_EQ(RunBroker(world.arguments), 0);
    EXPECT_EQ(world.status.records, (std::vector{kAuthorized, kReady}));
}

TEST(BrokerReadyWait, TakesTheWorkerAsReadyWhenItHasEndedTogetherWithTheSignal) {
    BrokerWorld world;
    world.onLaunch = [&] {
        world.ReportAuthorized();
        world.worker.End(1);
    };
    EXPECT_EQ(RunBroker(world.arguments), 1);
    EXPECT_EQ(world.status.records, (std::vector{kAuthorized, kReady}));
}

}  // namespace
}  // namespace updater
