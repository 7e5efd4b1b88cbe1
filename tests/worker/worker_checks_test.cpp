#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>

#include "fixtures/application_names.h"
#include "fixtures/install_mutex.h"
#include "fixtures/processes/failing_steps.h"
#include "fixtures/raised_errors.h"
#include "fixtures/refusals.h"
#include "fixtures/scenes/worker_scene.h"
#include "support/process_utilities.h"
#include "worker/worker.h"

namespace updater {
namespace {

constexpr char kAnotherInstallation[] = "Another update installation is running";
constexpr char kWrongParent[] = "Installation directory does not match the running application";
constexpr char kNoBroker[] = "Update broker is missing";

TEST(WorkerChecks, RefuseAWorkerWithoutElevationBeforeAnyOptionIsRead) {
    WorkerScene scene;
    scene.rights.held = Rights::Limited;
    scene.arguments.clear();
    EXPECT_THAT([&] { RunWorker(scene.arguments); },
                RaisesError("Administrator authorization is required"));
    EXPECT_TRUE(scene.mutexes.empty());
}

TEST(WorkerChecks, ReadTheOptionsBeforeAnythingElse) {
    WorkerScene scene;
    const UpdaterArguments complete = scene.arguments;
    for (const wchar_t* option : {kInstallerOption, kInstallDirOption, kJobDirOption,
                                  kVersionOption, kSha256Option, kSizeOption, kParentPidOption}) {
        scene.arguments = complete;
        scene.arguments.erase(option);
        EXPECT_THAT([&] { RunWorker(scene.arguments); }, RaisesError("Missing update argument"));
    }
    EXPECT_TRUE(scene.mutexes.empty());
}

TEST(WorkerChecks, RequireTheEventNameOnlyAfterTheApplicationsChecks) {
    WorkerScene scene;
    scene.arguments[kEventOption] = L"";
    EXPECT_THAT([&] { RunWorker(scene.arguments); }, RaisesError("Missing update argument"));
    EXPECT_EQ(scene.actions,
              (std::vector<std::string>{"query elevation", "create mutex", "open parent",
                                        "query parent's image", "list processes"}));
}

TEST(WorkerMutex, IsOneForTheWholeMachineAndOwnedFromTheStart) {
    WorkerScene scene;
    EXPECT_EQ(RunWorker(scene.arguments), 0);
    ASSERT_EQ(scene.mutexes.size(), 1U);
    EXPECT_EQ(scene.mutexes[0].name, kInstallMutexName);
    EXPECT_FALSE(scene.mutexes[0].hasSecurityAttributes);
    EXPECT_TRUE(scene.mutexes[0].initiallyOwned);
}

TEST(WorkerMutex, KeepsASecondWorkerOutAndStaysTheFirstOnes) {
    WorkerScene scene;
    const UniqueHandle first = OwnHandle(CreateMutexW(nullptr, FALSE, kInstallMutexName));
    ASSERT_TRUE(first);
    EXPECT_THAT([&] { RunWorker(scene.arguments); }, RaisesError(kAnotherInstallation));
    EXPECT_TRUE(InstallMutexExists());
    EXPECT_TRUE(scene.openings.empty());
    EXPECT_TRUE(scene.staging.creations.empty());
}

TEST(WorkerMutex, MustBeMade) {
    WorkerScene scene;
    // An object of another kind under the same name.
    const UniqueHandle obstacle = OwnHandle(CreateEventW(nullptr, TRUE, FALSE, kInstallMutexName));
    ASSERT_TRUE(obstacle);
    EXPECT_THAT([&] { RunWorker(scene.arguments); }, RaisesError(kAnotherInstallation));
}

DWORD WINAPI TryToOwnMutex(void*) {
    const UniqueHandle mutex = OwnHandle(OpenMutexW(SYNCHRONIZE, FALSE, kInstallMutexName));
    return mutex ? WaitForSingleObjectEx(mutex.get(), 0, FALSE) : WAIT_FAILED;
}

// What a wait for the mutex, by somebody else than the worker, answers.
DWORD MutexState() {
    const UniqueHandle thread =
        OwnHandle(CreateThread(nullptr, 0, TryToOwnMutex, nullptr, 0, nullptr));
    DWORD state = WAIT_FAILED;
    WaitForSingleObjectEx(thread.get(), INFINITE, FALSE);
    GetExitCodeThread(thread.get(), &state);
    return state;
}

TEST(WorkerMutex, IsHeldUntilTheWorkerReturns) {
    WorkerScene scene;
    std::vector<DWORD> states;
    const auto whenReady = scene.onReady;
    scene.onReady = [&] {
        states.push_back(MutexState());
        whenReady();
    };
    scene.onSetupStart = [&] { states.push_back(MutexState()); };
    RunWorker(scene.arguments);
    EXPECT_EQ(states, std::vector<DWORD>(2, WAIT_TIMEOUT));
    EXPECT_FALSE(InstallMutexExists());
}

TEST(WorkerChecks, RefuseAParentThatHasEnded) {
    WorkerScene scene;
    scene.application.EndAndForget();
    EXPECT_THAT([&] { RunWorker(scene.arguments); }, RaisesError(kWrongParent));
}

// Its process is there as long as somebody has it open, and Windows may tell its image or not.
TEST(WorkerChecks, TakeAParentThatHasEndedForWhatItsImageSays) {
    WorkerScene scene;
    scene.application.End();
    EXPECT_EQ(RunWorker(scene.arguments), 0);
    EXPECT_EQ(scene.status.records.back().state, "succeeded");

    WorkerScene unreadable;
    unreadable.application.End();
    unreadable.faults.parentUnreadable = true;
    EXPECT_THAT([&] { RunWorker(unreadable.arguments); },
                RaisesError("Cannot inspect application process"));
    EXPECT_TRUE(unreadable.openings.empty());
}

TEST(WorkerChecks, RefuseAParentThatCannotBeOpened) {
    WorkerScene scene;
    scene.faults.inaccessibleProcess = scene.application.id;
    EXPECT_THAT([&] { RunWorker(scene.arguments); }, RaisesError(kWrongParent));
    EXPECT_EQ(std::ranges::count(scene.actions, "open parent"), 1);
}

TEST(WorkerChecks, RefuseAParentFromAnotherDirectoryBeforeAnyDirectoryIsMade) {
    WorkerScene scene;
    const StandInProcess stranger =
        StartStandInApplication(scene.directory.path / L"other" / kExecutableName, 1);
    scene.arguments[kParentPidOption] = std::to_wstring(stranger.id);
    scene.actions.clear();
    EXPECT_THAT([&] { RunWorker(scene.arguments); }, RaisesError(kWrongParent));
    EXPECT_EQ(scene.actions, (std::vector<std::string>{"query elevation", "create mutex"}));
    EXPECT_TRUE(scene.staging.creations.empty());
    EXPECT_TRUE(scene.status.records.empty());
}

TEST(WorkerChecks, RefuseAParentWhoseImageCannotBeRead) {
    WorkerScene scene;
    scene.faults.parentUnreadable = true;
    EXPECT_THAT([&] { RunWorker(scene.arguments); },
                RaisesError("Cannot inspect application process"));
}

TEST(WorkerChecks, FindTheParentUnderAnotherSpellingOfItsDirectory) {
    WorkerScene scene;
    std::wstring spelling = scene.installDirectory.native() + L"/./";
    spelling.replace(spelling.find(L"app"), 3, L"APP");
    scene.arguments[kInstallDirOption] = spelling;
    EXPECT_EQ(RunWorker(scene.arguments), 0);
    EXPECT_EQ(scene.processes.starts.at(0).commandLine.find(L"/./"), std::wstring::npos);
}

TEST(WorkerChecks, RefuseASecondInstanceOfTheApplication) {
    WorkerScene scene;
    const StandInProcess second = StartWaiting(scene.applicationPath);
    EXPECT_THAT([&] { RunWorker(scene.arguments); },
                RaisesError("Another application instance is running; close it first"));
    EXPECT_TRUE(scene.openings.empty());
}

TEST(WorkerChecks, RefuseAnInstanceThatCannotBeInspected) {
    WorkerScene scene;
    const StandInProcess stranger =
        StartStandInApplication(scene.directory.path / L"other" / kExecutableName, 1);
    scene.faults.inaccessibleProcess = stranger.id;
    EXPECT_THAT([&] { RunWorker(scene.arguments); },
                RaisesError("Another application instance is inaccessible; close it first"));
}

TEST(WorkerEvents, AreOpenedWithTheRightsThatEachNeeds) {
    WorkerScene scene;
    RunWorker(scene.arguments);
    ASSERT_EQ(scene.openings.size(), 2U);
    EXPECT_EQ(scene.openings[0].name, scene.eventBaseName + L"-ready");
    EXPECT_EQ(scene.openings[0].access, 2U);
    EXPECT_FALSE(scene.openings[0].inherits);
    EXPECT_EQ(scene.openings[1].name, scene.eventBaseName + L"-commit");
    EXPECT_EQ(scene.openings[1].access, 0x100000U);
    EXPECT_FALSE(scene.openings[1].inherits);
}

TEST(WorkerEvents, MustBothExist) {
    for (UniqueHandle WorkerScene::* missing : {&WorkerScene::ready, &WorkerScene::commit}) {
        WorkerScene scene;
        (scene.*missing).reset();
        EXPECT_THAT([&] { RunWorker(scene.arguments); }, RaisesError(kNoBroker));
        EXPECT_TRUE(scene.staging.folderQueries.empty());
    }
}

TEST(WorkerRefusals, OfMutexAndEventsAreFinal) {
    WorkerScene scene;
    const auto run = [&scene] { RunWorker(scene.arguments); };
    ExpectFinalRefusal(doubles::CreateMutexW, nullptr, run, kAnotherInstallation);
    ExpectFinalRefusal(
        doubles::OpenEventW, nullptr, [&](DWORD) { EXPECT_THAT(run, RaisesError(kNoBroker)); },
        kRefusals, 2);
}

TEST(WorkerRefusals, OfTheStagingDirectoryAreFinal) {
    WorkerScene scene;
    ExpectFinalRefusal(
        doubles::CreateDirectoryW, FALSE, [&scene] { RunWorker(scene.arguments); },
        "Protected staging directory already exists or is inaccessible");
    EXPECT_EQ(std::ranges::count(scene.actions, "create identity"),
              static_cast<std::ptrdiff_t>(kRefusals.size()))
        << "no other name is tried";
}

TEST(WorkerRefusals, OfTheCopyAreFinal) {
    WorkerScene scene;
    ExpectFinalRefusal(doubles::CopyFileW, FALSE, [&scene](DWORD) {
        EXPECT_THAT([&] { RunWorker(scene.arguments); }, RaisesFileSystemError("copy_file"));
    });
    EXPECT_EQ(scene.staging.created.size(), kRefusals.size());
}

constexpr FailingStep<WorkerScene> kFailingSteps[] = {
    {"Administrator authorization is required",
     [](WorkerScene& scene) { scene.rights.held = Rights::Limited; }},
    {"invalid stoull argument", [](WorkerScene& scene) { scene.arguments[kSizeOption] = L"abc"; }},
    {"invalid stoul argument",
     [](WorkerScene& scene) { scene.arguments[kParentPidOption] = L"abc"; }},
    {kAnotherInstallation,
     [](WorkerScene& scene) {
         scene.mutexOfAnotherWorker = OwnHandle(CreateMutexW(nullptr, FALSE, kInstallMutexName));
     }},
    {"Cannot inspect application process",
     [](WorkerScene& scene) { scene.faults.parentUnreadable = true; }},
    {"Cannot enumerate running applications",
     [](WorkerScene& scene) { scene.faults.unreadableProcessLists = {1, 2}; }},
    {"Missing update argument", [](WorkerScene& scene) { scene.arguments.erase(kEventOption); }},
    {kNoBroker, [](WorkerScene& scene) { scene.ready.reset(); }},
    {"Cannot locate machine staging directory",
     [](WorkerScene& scene) { scene.faults.folderUnknown = true; }},
    {"Cannot create update job identity",
     [](WorkerScene& scene) { scene.faults.identityUnavailable = true; }},
    {"Cannot create protected staging directory",
     [](WorkerScene& scene) { scene.faults.securityUnavailable = true; }},
    {"Protected staging directory already exists or is inaccessible",
     [](WorkerScene& scene) { scene.faults.directoryUnavailable = true; }},
    {"Protected installer size or SHA256 mismatch",
     [](WorkerScene& scene) { scene.arguments[kSha256Option] = L"0"; }},
    {"Cannot write update status",
     [](WorkerScene& scene) {
         scene.faults.unwritableStates = {"authorized", "installing", "cancelled"};
     }},
    {"Cannot enumerate running applications",
     [](WorkerScene& scene) { scene.faults.unreadableProcessLists.insert(2); }},
    {"Cannot read installed executable version",
     [](WorkerScene& scene) { scene.faults.unreadableVersions = {1}; }},
};

TEST(WorkerChecks, FailInTheirOrder) {
    ExpectFailuresInOrder<WorkerScene>(
        kFailingSteps, [](const WorkerScene& scene) { RunWorker(scene.arguments); });
}

TEST(WorkerSteps, OfASuccessfulInstallationFollowEachOther) {
    WorkerScene scene;
    EXPECT_EQ(RunWorker(scene.arguments), 0);
    EXPECT_EQ(scene.actions, (std::vector<std::string>{"query elevation",
                                                       "create mutex",
                                                       "open parent",
                                                       "query parent's image",
                                                       "list processes",
                                                       "open ready event",
                                                       "open commit event",
                                                       "find data folder",
                                                       "release memory",
                                                       "create identity",
                                                       "make security descriptor",
                                                       "create staging directory",
                                                       "release memory",
                                                       "copy",
                                                       "write authorized",
                                                       "set ready event",
                                                       "list processes",
                                                       "read version",
                                                       "read registered version",
                                                       "back up",
                                                       "flush the volume",
                                                       "write installing",
                                                       "start setup",
                                                       "read version",
                                                       "write succeeded"}));
}

}  // namespace
}  // namespace updater
