#include <gtest/gtest.h>

#include <exception>

#include "broker/broker.h"
#include "fixtures/open_handles.h"
#include "fixtures/scenes/broker_scene.h"
#include "support/file_system.h"
#include "support/status_file.h"

namespace updater {
namespace {

struct WayToEnd {
    const char* name;
    void (*arrange)(BrokerScene& scene);
};

const WayToEnd kWaysToEnd[] = {
    {"Elevated", [](BrokerScene& scene) { scene.rights.held = Rights::Elevated; }},
    {"MissingArgument", [](BrokerScene& scene) { scene.arguments.clear(); }},
    {"WrongParent",
     [](BrokerScene& scene) {
         scene.arguments[kParentPidOption] = std::to_wstring(scene.worker.id);
     }},
    {"UnreadableParent", [](BrokerScene& scene) { scene.faults.parentUnreadable = true; }},
    {"UnreadableProcessList",
     [](BrokerScene& scene) { scene.faults.unreadableProcessLists = {1}; }},
    {"NoIdentity", [](BrokerScene& scene) { scene.faults.identityUnavailable = true; }},
    {"NoReadyEvent", [](BrokerScene& scene) { scene.faults.readyEventUnavailable = true; }},
    {"NoCommitEvent", [](BrokerScene& scene) { scene.faults.commitEventUnavailable = true; }},
    {"OwnImageUnreadable", [](BrokerScene& scene) { scene.faults.ownImageUnreadable = true; }},
    {"Declined", [](BrokerScene& scene) { scene.faults.launchError = ERROR_CANCELLED; }},
    {"DeclinedWithoutRecord",
     [](BrokerScene& scene) {
         scene.faults.launchError = ERROR_CANCELLED;
         scene.faults.unwritableStates = {kStateCancelled};
     }},
    {"NotReady", [](BrokerScene& scene) { scene.LetWorkerBeSilent(); }},
    {"NoProcessHandle", [](BrokerScene& scene) { scene.faults.launchGivesNoHandle = true; }},
    {"NoReadyRecord", [](BrokerScene& scene) { scene.faults.unwritableStates = {kStateReady}; }},
    {"CancelMarker", [](BrokerScene& scene) { CreateDirectories(scene.jobDirectory / L"cancel"); }},
    {"MarkerUninspectable",
     [](BrokerScene& scene) { scene.faults.uninspectableEntry = L"cancel"; }},
    {"WorkerEnded", [](BrokerScene& scene) { scene.onReady = [&scene] { scene.worker.End(1); }; }},
    {"TimedOut", [](BrokerScene&) {}},
    {"Succeeded", [](BrokerScene& scene) { scene.LetWorkerEndWith(0); }},
    {"Failed", [](BrokerScene& scene) { scene.LetWorkerEndWith(1); }},
    {"NoRestart",
     [](BrokerScene& scene) {
         scene.LetWorkerEndWith(0);
         scene.processes.beforeStart = [](const ProcessStart&) { return ERROR_ACCESS_DENIED; };
     }},
};

void RunToAnyEnd(const BrokerScene& scene) {
    try {
        RunBroker(scene.arguments);
    } catch (const std::exception&) {
        // How the broker ends is other tests' subject.
    }
}

struct BrokerHandles : testing::TestWithParam<WayToEnd> {};

TEST_P(BrokerHandles, AreAllClosed) {
    ExpectNoHandleLeft([] {
        BrokerScene scene;
        GetParam().arrange(scene);
        RunToAnyEnd(scene);
    });
}

INSTANTIATE_TEST_SUITE_P(After, BrokerHandles, testing::ValuesIn(kWaysToEnd),
                         [](const auto& test) { return test.param.name; });

// How many handles the broker has open when it commits.
std::size_t CountHandlesAtCommit() {
    BrokerScene scene;
    scene.LetWorkerEndWith(0);
    const std::size_t before = CountOpenHandles();
    std::size_t atCommit = 0;
    const auto endWorker = scene.onCommit;
    scene.onCommit = [&] {
        atCommit = CountOpenHandles();
        endWorker();
    };
    RunBroker(scene.arguments);
    return atCommit - before;
}

TEST(BrokerHandlesAtCommit, AreParentTwoEventsAndWorker) {
    // The first time, libraries open handles of their own.
    CountHandlesAtCommit();
    EXPECT_EQ(CountHandlesAtCommit(), 4U);
}

}  // namespace
}  // namespace updater
