#include <gtest/gtest.h>

#include <exception>

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
         world.mutexOfAnotherWorker =
             OwnHandle(CreateMutexW(nullptr, FALSE, L"Global\\CorvellanUpdateInstall"));
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
    WorkerWorld world;
    GetParam().arrange(world);
    const std::size_t before = CountOpenHandles();
    try {
        RunWorker(world.arguments);
    } catch (const std::exception&) {
        // How the worker ends is other tests' subject.
    }
    EXPECT_EQ(CountOpenHandles(), before);
    EXPECT_TRUE(world.staging.unreleased.empty());
}

INSTANTIATE_TEST_SUITE_P(After, WorkerHandles, testing::ValuesIn(kWaysToEnd),
                         [](const auto& test) { return test.param.name; });

TEST(WorkerHandlesDuringSetup, AreMutexParentAndTwoEvents) {
    WorkerWorld world;
    std::size_t during = 0;
    world.installed.onSetupStart = [&] { during = CountOpenHandles(); };
    const std::size_t before = CountOpenHandles();
    EXPECT_EQ(RunWorker(world.arguments), 0);
    EXPECT_EQ(during, before + 4);
}

}  // namespace
}  // namespace updater
