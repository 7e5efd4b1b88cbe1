#include <gtest/gtest.h>

#include <initializer_list>
#include <regex>

#include "broker/broker.h"
#include "broker/worker_parameters.h"
#include "fixtures/application_names.h"
#include "fixtures/file_content.h"
#include "fixtures/processes/expected_records.h"
#include "fixtures/raised_errors.h"
#include "fixtures/refusals.h"
#include "fixtures/scenes/broker_scene.h"
#include "support/process_utilities.h"
#include "support/status_file.h"

namespace updater {
namespace {

const StatusRecord kNotReady = {"failed", "Upgrade helper did not become ready", 1};

TEST(BrokerEvents, HaveTheRunsOwnNamesAndAreManuallyResetAndNotSignalled) {
    BrokerScene scene;
    scene.faults.launchError = ERROR_CANCELLED;
    RunBroker(scene.arguments);
    RunBroker(scene.arguments);
    ASSERT_EQ(scene.events.size(), 4U);
    const std::wregex form(
        LR"((Local\\)" IDENTITY_BASE_NAME LR"(-\{[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\})-(ready|commit))");
    std::vector<std::wstring> baseNames;
    for (const EventCreation& event : scene.events) {
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
        BrokerScene scene;
        scene.faults.readyEventUnavailable = readyMissing;
        scene.faults.commitEventUnavailable = !readyMissing;
        EXPECT_THAT([&] { RunBroker(scene.arguments); },
                    RaisesError("Cannot initialize update handshake"));
        EXPECT_EQ(scene.events.size(), 2U);
        EXPECT_TRUE(scene.launches.empty());
    }
}

TEST(BrokerEvents, AreRefusedForGood) {
    BrokerScene scene;
    ExpectFinalRefusal(
        doubles::CreateEventW, nullptr,
        [&](DWORD) {
            EXPECT_THAT([&] { RunBroker(scene.arguments); },
                        RaisesError("Cannot initialize update handshake"));
        },
        kRefusals, 2);
    EXPECT_TRUE(scene.launches.empty());
}

TEST(BrokerEvents, AreUsedAsTheyAreWhenTheyExistedBefore) {
    BrokerScene scene;
    scene.LetWorkerEndWith(0);
    std::vector<UniqueHandle> earlier;
    ScopedReplacement<decltype(CreateEventW)> existing(
        doubles::CreateEventW,
        [&](LPSECURITY_ATTRIBUTES security, BOOL manual, BOOL signalled, LPCWSTR name) {
            earlier.push_back(OwnHandle(CreateEventW(security, manual, signalled, name)));
            HANDLE handle = scene.OnCreateEvent(security, manual, signalled, name);
            EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
            return handle;
        });
    EXPECT_EQ(RunBroker(scene.arguments), 0);
    ASSERT_EQ(earlier.size(), 2U);
    for (const UniqueHandle& event : earlier) {
        EXPECT_EQ(WaitForSingleObjectEx(event.get(), 0, FALSE), WAIT_OBJECT_0)
            << "set, and not reset";
    }
}

TEST(BrokerLaunch, AsksTheShellToStartThisProgramElevatedAndHidden) {
    BrokerScene scene;
    scene.faults.launchError = ERROR_CANCELLED;
    RunBroker(scene.arguments);
    ASSERT_EQ(scene.launches.size(), 1U);
    const ElevatedLaunch& launch = scene.launches.front();
    EXPECT_EQ(launch.verb, L"runas");
    EXPECT_EQ(launch.file, GetProcessImagePath(GetCurrentProcess()));
    const std::wstring readyName = scene.events.front().name;
    const std::wstring baseName = readyName.substr(0, readyName.rfind(L'-'));
    EXPECT_EQ(launch.parameters, BuildWorkerParameters(scene.arguments, baseName));

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
    BrokerScene scene;
    scene.faults.launchError = 1223;
    EXPECT_EQ(RunBroker(scene.arguments), 2);
    EXPECT_EQ(ReadStatusRecord(scene.jobDirectory),
              (StatusRecord{"cancelled", "Administrator authorization cancelled", 1223}));
    EXPECT_EQ(scene.status.records.size(), 1U);
    EXPECT_EQ(scene.launches.size(), 1U) << "nobody is asked twice";
}

TEST(BrokerLaunch, EndsAsFailedWithTheNumberOfAnyOtherError) {
    for (const DWORD error : std::initializer_list<DWORD>{
             0, ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_BUSY,
             ERROR_NO_ASSOCIATION, 1222, 1224, ERROR_TIMEOUT, 0x80070005}) {
        SCOPED_TRACE(error);
        BrokerScene scene;
        scene.faults.launchError = error;
        EXPECT_EQ(RunBroker(scene.arguments), 1);
        EXPECT_EQ(scene.status.records,
                  (std::vector<StatusRecord>{
                      {"failed", "Authorization failed", static_cast<int>(error)}}));
        EXPECT_EQ(scene.launches.size(), 1U) << "nobody is asked twice";
        EXPECT_EQ(ReadStatusRecord(scene.jobDirectory), scene.status.records.front());
    }
}

TEST(BrokerReadyWait, IsForTheEventThenTheWorkerForThreeMinutes) {
    BrokerScene scene;
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
    EXPECT_EQ(RunBroker(scene.arguments), 1);
    ASSERT_EQ(waitedFor.size(), 2U);
    EXPECT_EQ(waitedFor[0], scene.eventHandles[0]);
    EXPECT_EQ(firstProcess, scene.worker.id);
}

struct NoReadySignal {
    const char* name;
    void (*arrange)(BrokerScene& scene);
};

const NoReadySignal kNoReadySignals[] = {
    {"TheWorkerEndsFirst",
     [](BrokerScene& scene) {
         scene.onLaunch = [&scene] { scene.time.After(5000, [&scene] { scene.worker.End(1); }); };
     }},
    {"TheWorkerHasEndedBeforeTheWait",
     [](BrokerScene& scene) { scene.onLaunch = [&scene] { scene.worker.End(0); }; }},
    {"ThreeMinutesPass", [](BrokerScene& scene) { scene.LetWorkerBeSilent(); }},
    {"TheSignalComesTooLate",
     [](BrokerScene& scene) {
         scene.onLaunch = [&scene] {
             scene.time.After(kThreeMinutes + 1, [&scene] { scene.SetReadyEvent(); });
         };
     }},
    {"TheWaitFails",
     [](BrokerScene& scene) {
         scene.LetWorkerBeSilent();
         scene.time.forcedResult = WAIT_FAILED;
     }},
    {"TheWaitIsAbandoned",
     [](BrokerScene& scene) {
         scene.LetWorkerBeSilent();
         scene.time.forcedResult = WAIT_ABANDONED_0;
     }},
    {"TheShellGivesNoProcessHandle",
     [](BrokerScene& scene) {
         scene.faults.launchGivesNoHandle = true;
         scene.onLaunch = [&scene] { scene.SetReadyEvent(); };
     }},
};

struct BrokerWithoutReadySignal : testing::TestWithParam<NoReadySignal> {};

TEST_P(BrokerWithoutReadySignal, RecordsThatTheWorkerDidNotBecomeReady) {
    BrokerScene scene;
    GetParam().arrange(scene);
    EXPECT_EQ(RunBroker(scene.arguments), 1);
    EXPECT_EQ(scene.status.records, std::vector{kNotReady});
    EXPECT_EQ(ReadStatusRecord(scene.jobDirectory), kNotReady);
    EXPECT_FALSE(scene.Did("set commit event"));
    EXPECT_FALSE(scene.Did("start application"));
    EXPECT_TRUE(scene.errorBoxes.empty());
}

TEST_P(BrokerWithoutReadySignal, KeepsAnExistingStatusFile) {
    for (const char* content : {"left by an earlier run", ""}) {
        BrokerScene scene;
        WriteFileContent(scene.jobDirectory / L"status.json", content);
        GetParam().arrange(scene);
        EXPECT_EQ(RunBroker(scene.arguments), 1);
        EXPECT_TRUE(scene.status.records.empty());
        EXPECT_EQ(ReadFileContent(scene.jobDirectory / L"status.json"), content);
    }
}

INSTANTIATE_TEST_SUITE_P(When, BrokerWithoutReadySignal, testing::ValuesIn(kNoReadySignals),
                         [](const auto& test) { return test.param.name; });

TEST(BrokerReadyWait, EndsAtOnceWhenTheShellGivesNoProcessHandle) {
    BrokerScene scene;
    scene.faults.launchGivesNoHandle = true;
    scene.LetWorkerBeSilent();
    EXPECT_EQ(RunBroker(scene.arguments), 1);
    EXPECT_EQ(scene.time.Passed(), 0U);
}

TEST(BrokerReadyWait, RaisesWhenTheStatusFileCannotBeLookedFor) {
    BrokerScene scene;
    scene.LetWorkerBeSilent();
    scene.faults.uninspectableEntry = L"status.json";
    EXPECT_THAT([&] { RunBroker(scene.arguments); }, RaisesFileSystemError("exists"));
    EXPECT_TRUE(scene.status.records.empty());
}

TEST(BrokerReadyWait, TakesTheSignalInTheLastMoment) {
    BrokerScene scene;
    scene.LetWorkerEndWith(0);
    scene.onLaunch = [&] { scene.time.After(kThreeMinutes, [&] { scene.ReportAuthorized(); }); };
    EXPECT_EQ(RunBroker(scene.arguments), 0);
    EXPECT_EQ(scene.status.records, (std::vector{kAuthorized, kReady}));
}

TEST(BrokerReadyWait, TakesTheWorkerAsReadyWhenItHasEndedTogetherWithTheSignal) {
    BrokerScene scene;
    scene.onLaunch = [&] {
        scene.ReportAuthorized();
        scene.worker.End(1);
    };
    EXPECT_EQ(RunBroker(scene.arguments), 1);
    EXPECT_EQ(scene.status.records, (std::vector{kAuthorized, kReady}));
}

}  // namespace
}  // namespace updater
