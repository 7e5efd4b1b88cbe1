#include <gtest/gtest.h>

#include <exception>
#include <string>

#include "fixtures/install_mutex.h"
#include "fixtures/open_handles.h"
#include "fixtures/scenes/worker_scene.h"
#include "worker/worker.h"

namespace updater {
namespace {

struct WayToEnd {
    const char* name;
    /// The exit code, or what is raised.
    const char* end;
    void (*arrange)(WorkerScene& scene);
};

const WayToEnd kWaysToEnd[] = {
    {"NotElevated", "Administrator authorization is required",
     [](WorkerScene& scene) { scene.rights.held = Rights::Limited; }},
    {"MissingArgument", "Missing update argument",
     [](WorkerScene& scene) { scene.arguments.clear(); }},
    {"AnotherWorker", "Another update installation is running",
     [](WorkerScene& scene) {
         scene.mutexOfAnotherWorker = OwnHandle(CreateMutexW(nullptr, FALSE, kInstallMutexName));
     }},
    {"UnreadableParent", "Cannot inspect application process",
     [](WorkerScene& scene) { scene.faults.parentUnreadable = true; }},
    {"WrongParent", "Installation directory does not match the running application",
     [](WorkerScene& scene) {
         scene.arguments[kParentPidOption] = std::to_wstring(GetCurrentProcessId());
     }},
    {"UnreadableProcessList", "Cannot enumerate running applications",
     [](WorkerScene& scene) { scene.faults.unreadableProcessLists = {1}; }},
    {"NoEventName", "Missing update argument",
     [](WorkerScene& scene) { scene.arguments.erase(kEventOption); }},
    {"NoReadyEvent", "Update broker is missing", [](WorkerScene& scene) { scene.ready.reset(); }},
    {"NoCommitEvent", "Update broker is missing", [](WorkerScene& scene) { scene.commit.reset(); }},
    {"NoDataFolder", "Cannot locate machine staging directory",
     [](WorkerScene& scene) { scene.faults.folderUnknown = true; }},
    {"NoIdentity", "Cannot create update job identity",
     [](WorkerScene& scene) { scene.faults.identityUnavailable = true; }},
    {"NoSecurity", "Cannot create protected staging directory",
     [](WorkerScene& scene) { scene.faults.securityUnavailable = true; }},
    {"NoStagingDirectory", "Protected staging directory already exists or is inaccessible",
     [](WorkerScene& scene) { scene.faults.directoryUnavailable = true; }},
    {"WrongDigest", "Protected installer size or SHA256 mismatch",
     [](WorkerScene& scene) { scene.arguments[kSha256Option] = L"0"; }},
    {"NoAuthorizedRecord", "Cannot write update status",
     [](WorkerScene& scene) { scene.faults.unwritableStates = {"authorized"}; }},
    {"Cancelled", "exit code 2", [](WorkerScene& scene) { scene.LetBrokerNeverCommit(); }},
    {"CancelledWithoutRecord", "Cannot write update status",
     [](WorkerScene& scene) {
         scene.LetBrokerNeverCommit();
         scene.faults.unwritableStates = {"cancelled"};
     }},
    {"InstanceBeforeTheInstallation", "Cannot enumerate running applications",
     [](WorkerScene& scene) { scene.faults.unreadableProcessLists = {2}; }},
    {"PreparationFailed", "Cannot read installed executable version",
     [](WorkerScene& scene) { scene.faults.unreadableVersions = {1}; }},
    {"BackupFailed", "Program backup checksum mismatch",
     [](WorkerScene& scene) { scene.faults.backupCorrupted = true; }},
    {"Succeeded", "exit code 0", [](WorkerScene&) {}},
    {"RolledBack", "exit code 1", [](WorkerScene& scene) { scene.LetSetupEndWith("1"); }},
    {"RollbackFailed", "Restored program checksum mismatch",
     [](WorkerScene& scene) {
         scene.LetSetupEndWith("1");
         scene.faults.restoreCorrupted = true;
     }},
    {"RollbackWithoutRecord", "Cannot write update status",
     [](WorkerScene& scene) {
         scene.LetSetupEndWith("1");
         scene.faults.unwritableStates = {"failed"};
     }},
};

std::string EndOfWorker(const UpdaterArguments& arguments) {
    try {
        return "exit code " + std::to_string(RunWorker(arguments));
    } catch (const std::exception& failure) {
        return failure.what();
    }
}

struct WorkerHandles : testing::TestWithParam<WayToEnd> {};

TEST_P(WorkerHandles, AreAllClosedAndTheMutexIsNobodysAnyMore) {
    ExpectNoHandleLeft([] {
        WorkerScene scene;
        GetParam().arrange(scene);
        EXPECT_EQ(EndOfWorker(scene.arguments), GetParam().end);
        EXPECT_EQ(InstallMutexExists(), scene.mutexOfAnotherWorker != nullptr);
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
