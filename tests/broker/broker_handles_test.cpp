#include <gtest/gtest.h>

#include <exception>

#include "broker/broker.h"
#include "broker/broker_world.h"
#include "fixtures/open_handles.h"
#include "support/file_system.h"
#include "support/status_file.h"

namespace updater {
namespace {

struct WayToEnd {
    const char* name;
    void (*arrange)(BrokerWorld& world);
};

const WayToEnd kWaysToEnd[] = {
    {"Elevated", [](BrokerWorld& world) { world.faults.elevated = true; }},
    {"MissingArgument", [](BrokerWorld& world) { world.arguments.clear(); }},
    {"WrongParent",
     [](BrokerWorld& world) {
         world.arguments[kParentPidOption] = std::to_wstring(world.worker.id);
     }},
    {"UnreadableParent", [](BrokerWorld& world) { world.faults.parentUnreadable = true; }},
    {"UnreadableProcessList",
     [](BrokerWorld& world) { world.faults.processListUnreadable = true; }},
    {"NoIdentity", [](BrokerWorld& world) { world.faults.identityUnavailable = true; }},
    {"NoReadyEvent", [](BrokerWorld& world) { world.faults.readyEventUnavailable = true; }},
    {"NoCommitEvent", [](BrokerWorld& world) { world.faults.commitEventUnavailable = true; }},
    {"OwnImageUnreadable", [](BrokerWorld& world) { world.faults.ownImageUnreadable = true; }},
    {"Declined", [](BrokerWorld& world) { world.faults.launchError = ERROR_CANCELLED; }},
    {"DeclinedWithoutRecord",
     [](BrokerWorld& world) {
         world.faults.launchError = ERROR_CANCELLED;
         world.faults.unwritableState = kStateCancelled;
     }},
    {"NotReady", [](BrokerWorld& world) { world.LetWorkerBeSilent(); }},
    {"NoProcessHandle", [](BrokerWorld& world) { world.faults.launchGivesNoHandle = true; }},
    {"NoReadyRecord", [](BrokerWorld& world) { world.faults.unwritableState = kStateReady; }},
    {"CancelMarker", [](BrokerWorld& world) { CreateDirectories(world.jobDirectory / L"cancel"); }},
    {"MarkerUninspectable",
     [](BrokerWorld& world) { world.faults.uninspectableEntry = L"cancel"; }},
    {"WorkerEnded", [](BrokerWorld& world) { world.onReady = [&world] { world.worker.End(1); }; }},
    {"TimedOut", [](BrokerWorld&) {}},
    {"Succeeded", [](BrokerWorld& world) { world.LetWorkerEndWith(0); }},
    {"Failed", [](BrokerWorld& world) { world.LetWorkerEndWith(1); }},
    {"NoRestart",
     [](BrokerWorld& world) {
         world.LetWorkerEndWith(0);
         world.processes.beforeStart = [](const ProcessStart&) { return ERROR_ACCESS_DENIED; };
     }},
};

void RunToAnyEnd(const BrokerWorld& world) {
    try {
        RunBroker(world.arguments);
    } catch (const std::exception&) {
        // How the broker ends is other tests' subject.
    }
}

struct BrokerHandles : testing::TestWithParam<WayToEnd> {};

TEST_P(BrokerHandles, AreAllClosed) {
    ExpectNoHandleLeft([] {
        BrokerWorld world;
        GetParam().arrange(world);
        RunToAnyEnd(world);
    });
}

INSTANTIATE_TEST_SUITE_P(After, BrokerHandles, testing::ValuesIn(kWaysToEnd),
                         [](const auto& test) { return test.param.name; });

// How many handles the broker has open when it commits.
std::size_t CountHandlesAtCommit() {
    BrokerWorld world;
    world.LetWorkerEndWith(0);
    const std::size_t before = CountOpenHandles();
    std::size_t atCommit = 0;
    const auto endWorker = world.onCommit;
    world.onCommit = [&] {
        atCommit = CountOpenHandles();
        endWorker();
    };
    RunBroker(world.arguments);
    return atCommit - before;
}

TEST(BrokerHandlesAtCommit, AreParentTwoEventsAndWorker) {
    // The first time, libraries open handles of their own.
    CountHandlesAtCommit();
    EXPECT_EQ(CountHandlesAtCommit(), 4U);
}

}  // namespace
}  // namespace updater
