#include <gtest/gtest.h>

#include <exception>

#include "fixtures/install_mutex.h"
#include "fixtures/open_handles.h"
#include "fixtures/scenes/worker_scene.h"
#include "worker/worker.h"

namespace updater {
namespace {

struct WayToEnd {
    const char* name;
    void (*arrange)(WorkerScene& scene);
};

const WayToEnd kWaysToEnd[] = {
    {"NotElevated", [](WorkerScene& scene) { scene.rights.held = Rights::Limited; }},
    {"MissingArgument", [](WorkerScene& scene) { scene.arguments.clear(); }},
    {"AnotherWorker",
     [](WorkerScene& scene) {
         scene.mutexOfAnotherWorker = OwnHandle(CreateMutexW(nullptr, FALSE, kInstallMutexName));
     }},
    {"UnreadableParent", [](WorkerScene& scene) { scene.faults.parentUnreadable = true; }},
    {"WrongParent",
     [](WorkerScene& scene) {
         scene.arguments[kParentPidOption] = std::to_wstring(GetCurrentProcessId());
     }},
    {"UnreadableProcessList",
     [](WorkerScene& scene) { scene.faults.unreadableProcessLists = {1}; }},
    {"NoEventName", [](WorkerScene& scene) { scene.arguments.erase(kEventOption); }},
    {"NoReadyEvent", [](WorkerScene& scene) { scene.ready.reset(); }},
    {"NoCommitEvent", [](WorkerScene& scene) { scene.commit.reset(); }},
    {"NoStagingDirectory", [](WorkerScene& scene) { scene.faults.directoryUnavailable = true; }},
    {"WrongDigest", [](WorkerScene& scene) { scene.arguments[kSha256Option] = L"0"; }},
    {"NoAuthorizedRecord",
     [](WorkerScene& scene) { scene.faults.unwritableStates = {"authorized"}; }},
    {"Cancelled", [](WorkerScene& scene) { scene.LetBrokerNeverCommit(); }},
    {"PreparationFailed", [](WorkerScene& scene) { scene.faults.unreadableVersions = {1}; }},
    {"Succeeded", [](WorkerScene&) {}},
    {"RolledBack", [](WorkerScene& scene) { scene.LetSetupEndWith("1"); }},
    {"RollbackFailed",
     [](WorkerScene& scene) {
         scene.LetSetupEndWith("1");
         scene.faults.restoreCorrupted = true;
     }},
};

struct WorkerHandles : testing::TestWithParam<WayToEnd> {};

TEST_P(WorkerHandles, AreAllClosed) {
    ExpectNoHandleLeft([] {
        WorkerScene scene;
        GetParam().arrange(scene);
        try {
            RunWorker(scene.arguments);
        } catch (const std::exception&) {
            // How the worker ends is other tests' subject.
        }
        EXPECT_TRUE(scene.staging.unreleased.empty());
    });
}

INSTANTIATE_TEST_SUITE_P(After, WorkerHandles, testing::ValuesIn(kWaysToEnd),
                         [](const auto& test) { return test.param.name; });

// How many handles the worker has open while the setup program is started.
std::size_t CountHandlesDuringSetup() {
    WorkerScene scene;
    std::size_t during = 0;
    scene.onSetupStart = [&] { during = CountOpenHandles(); };
    const std::size_t before = CountOpenHandles();
    EXPECT_EQ(RunWorker(scene.arguments), 0);
    return during - before;
}

TEST(WorkerHandlesDuringSetup, AreMutexParentAndTwoEvents) {
    // The first time, libraries open handles of their own.
    CountHandlesDuringSetup();
    EXPECT_EQ(CountHandlesDuringSetup(), 4U);
}

}  // namespace
}  // namespace updater
