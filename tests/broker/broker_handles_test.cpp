#include <gtest/gtest.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <string>

#include "broker/broker.h"
#include "fixtures/open_handles.h"
#include "fixtures/scenes/broker_scene.h"
#include "support/file_system.h"
#include "support/status_file.h"

namespace updater {
namespace {

struct WayToEnd {
    const char* name;
    /// The exit code, or what is raised.
    const char* end;
    void (*arrange)(BrokerScene& scene);
};

const WayToEnd kWaysToEnd[] = {
    {"Elevated", "Start the application without administrator privileges before updating",
     [](BrokerScene& scene) { scene.rights.held = Rights::Elevated; }},
    {"MissingArgument", "Missing update argument",
     [](BrokerScene& scene) { scene.arguments.clear(); }},
    {"WrongParent", "Update parent does not match installation directory",
     [](BrokerScene& scene) {
         scene.arguments[kParentPidOption] = std::to_wstring(scene.worker.id);
     }},
    {"UnreadableParent", "Cannot inspect application process",
     [](BrokerScene& scene) { scene.faults.parentUnreadable = true; }},
    {"UnreadableProcessList", "Cannot enumerate running applications",
     [](BrokerScene& scene) { scene.faults.unreadableProcessLists = {1}; }},
    {"NoIdentity", "Cannot create update job identity",
     [](BrokerScene& scene) { scene.faults.identityUnavailable = true; }},
    {"NoReadyEvent", "Cannot initialize update handshake",
     [](BrokerScene& scene) { scene.faults.readyEventUnavailable = true; }},
    {"NoCommitEvent", "Cannot initialize update handshake",
     [](BrokerScene& scene) { scene.faults.commitEventUnavailable = true; }},
    {"OwnImageUnreadable", "Cannot inspect application process",
     [](BrokerScene& scene) { scene.faults.ownImageUnreadable = true; }},
    {"Declined", "exit code 2",
     [](BrokerScene& scene) { scene.faults.launchError = ERROR_CANCELLED; }},
    {"DeclinedWithoutRecord", "Cannot write update status",
     [](BrokerScene& scene) {
         scene.faults.launchError = ERROR_CANCELLED;
         scene.faults.unwritableStates = {kStateCancelled};
     }},
    {"LaunchFailed", "exit code 1",
     [](BrokerScene& scene) { scene.faults.launchError = ERROR_FILE_NOT_FOUND; }},
    {"NotReady", "exit code 1", [](BrokerScene& scene) { scene.LetWorkerBeSilent(); }},
    {"NotReadyWithoutRecord", "Cannot write update status",
     [](BrokerScene& scene) {
         scene.LetWorkerBeSilent();
         scene.faults.unwritableStates = {kStateFailed};
     }},
    {"NoProcessHandle", "exit code 1",
     [](BrokerScene& scene) { scene.faults.launchGivesNoHandle = true; }},
    {"NoReadyRecord", "Cannot write update status",
     [](BrokerScene& scene) { scene.faults.unwritableStates = {kStateReady}; }},
    {"CancelMarker", "exit code 2",
     [](BrokerScene& scene) { CreateDirectories(scene.jobDirectory / L"cancel"); }},
    {"MarkerUninspectable", "exists",
     [](BrokerScene& scene) { scene.faults.uninspectableEntry = L"cancel"; }},
    {"WorkerEnded", "exit code 1",
     [](BrokerScene& scene) { scene.onReady = [&scene] { scene.worker.End(1); }; }},
    {"TimedOut", "exit code 2", [](BrokerScene&) {}},
    {"TimedOutWithoutRecord", "Cannot write update status",
     [](BrokerScene& scene) { scene.faults.unwritableStates = {kStateCancelled}; }},
    {"Succeeded", "exit code 0", [](BrokerScene& scene) { scene.LetWorkerEndWith(0); }},
    {"Failed", "exit code 1", [](BrokerScene& scene) { scene.LetWorkerEndWith(1); }},
    {"NoRestart", "Process launch failed: 5",
     [](BrokerScene& scene) {
         scene.LetWorkerEndWith(0);
         scene.processes.beforeStart = [](const ProcessStart&) { return ERROR_ACCESS_DENIED; };
     }},
};

// For the library's errors the operation alone: the rest of the message is the library's.
std::string EndOfBroker(const UpdaterArguments& arguments) {
    try {
        return "exit code " + std::to_string(RunBroker(arguments));
    } catch (const std::filesystem::filesystem_error& failure) {
        const std::string message = failure.what();
        return message.find("exists") == std::string::npos ? message : "exists";
    } catch (const std::exception& failure) {
        return failure.what();
    }
}

bool HasEvent(const EventCreation& event) {
    return OwnHandle(OpenEventW(SYNCHRONIZE, FALSE, event.name.c_str())) != nullptr;
}

struct BrokerHandles : testing::TestWithParam<WayToEnd> {};

TEST_P(BrokerHandles, AreAllClosedAndTheEventsAreGone) {
    ExpectNoHandleLeft([] {
        BrokerScene scene;
        GetParam().arrange(scene);
        EXPECT_EQ(EndOfBroker(scene.arguments), GetParam().end);
        EXPECT_FALSE(std::ranges::any_of(scene.events, HasEvent));
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
