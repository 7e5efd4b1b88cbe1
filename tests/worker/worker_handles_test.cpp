#include <gtest/gtest.h>

#include <exception>

#include "fixtures/install_mutex.h"
#include "fixtures/open_handles.h"
#include "worker/worker.h"
#include "worker/worker_world.h"

namespace updater {
namespace {

struct WayToEnd {
    const char* name;
    void (*arrange)(WorkerWorld& world);
};

const WayToEnd kWaysToEnd[] = {
    {"NotElevated", [](WorkerWorld& world) { world.faults.notElevated = true; }},
    {"MissingArgument", [](WorkerWorld& world) { world.arguments.clear(); }},
    {"AnotherWorker",
     [](WorkerWorld& world) {
         world.mutexOfAnotherWorker = OwnHandle(CreateMutexW(nullptr, FALSE, kInstallMutexName));
     }},
    {"UnreadableParent", [](WorkerWorld& world) { world.faults.parentUnreadable = true; }},
    {"WrongParent",
     [](WorkerWorld& world) {
         world.arguments[kParentPidOption] = std::to_wstring(GetCurrentProcessId());
     }},
    {"UnreadableProcessList",
     [](WorkerWorld& world) { world.installed.faults.unreadableProcessLists = {1}; }},
    {"NoEventName", [](WorkerWorld& world) { world.arguments.erase(kEventOption); }},
    {"NoReadyEvent", [](WorkerWorld& world) { world.ready.reset(); }},
    {"NoCommitEvent", [](WorkerWorld& world) { world.commit.reset(); }},
    {"NoStagingDirectory",
     [](WorkerWorld& world) { world.staging.faults.directoryUnavailable = true; }},
    {"WrongDigest", [](WorkerWorld& world) { world.arguments[kSha256Option] = L"0"; }},
    {"NoAuthorizedRecord",
     [](WorkerWorld& world) { world.installed.faults.unwritableStates = {"authorized"}; }},
    {"Cancelled", [](WorkerWorld& world) { world.LetBrokerNeverCommit(); }},
    {"PreparationFailed",
     [](WorkerWorld& world) { world.installed.faults.unreadableVersions = {1}; }},
    {"Succeeded", [](WorkerWorld&) {}},
    {"RolledBack", [](WorkerWorld& world) { world.installed.LetSetupEndWith("1"); }},
    {"RollbackFailed",
     [](WorkerWorld& world) {
         world.installed.LetSetupEndWith("1");
         world.installed.faults.restoreCorrupted = true;
     }},
};

struct WorkerHandles : testing::TestWithParam<WayToEnd> {};

TEST_P(WorkerHandles, AreAllClosed) {
    ExpectNoHandleLeft([] {
        WorkerWorld world;
        GetParam().arrange(world);
        try {
            RunWorker(world.arguments);
        } catch (const std::exception&) {
            // How the worker ends is other tests' subject.
        }
        EXPECT_TRUE(world.staging.unreleased.empty());
    });
}

INSTANTIATE_TEST_SUITE_P(After, WorkerHandles, testing::ValuesIn(kWaysToEnd),
                         [](const auto& test) { return test.param.name; });

// How many handles the worker has open while the setup program is started.
std::size_t CountHandlesDuringSetup() {
    WorkerWorld world;
    std::size_t during = 0;
    world.installed.onSetupStart = [&] { during = CountOpenHandles(); };
    const std::size_t before = CountOpenHandles();
    EXPECT_EQ(RunWorker(world.arguments), 0);
    return during - before;
}

TEST(WorkerHandlesDuringSetup, AreMutexParentAndTwoEvents) {
    // The first time, libraries open handles of their own.
    CountHandlesDuringSetup();
    EXPECT_EQ(CountHandlesDuringSetup(), 4U);
}

}  // namespace
}  // namespace updater
