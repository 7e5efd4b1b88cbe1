#include <gtest/gtest.h>

#include "fixtures/install_mutex.h"
#include "fixtures/processes/failing_steps.h"
#include "fixtures/raised_errors.h"
#include "support/process_utilities.h"
#include "worker/worker.h"
#include "worker/worker_world.h"

namespace updater {
namespace {

constexpr char kAnotherInstallation[] = "Another update installation is running";
constexpr char kWrongParent[] = "Installation directory does not match the running application";
constexpr char kNoBroker[] = "Update broker is missing";

bool MutexExists() {
    return OwnHandle(OpenMutexW(SYNCHRONIZE, FALSE, kInstallMutexName)) != nullptr;
}

TEST(WorkerChecks, RefuseAWorkerWithoutElevationBeforeAnyOptionIsRead) {
    WorkerWorld world;
    world.faults.notElevated = true;
    world.arguments.clear();
    EXPECT_THAT([&] { RunWorker(world.arguments); },
                RaisesError("Administrator authorization is required"));
    EXPECT_TRUE(world.mutexes.empty());
}

TEST(WorkerChecks, ReadTheOptionsBeforeAnythingElse) {
    WorkerWorld world;
    const UpdaterArguments complete = world.arguments;
    for (const wchar_t* option : {kInstallerOption, kInstallDirOption, kJobDirOption,
                                  kVersionOption, kSha256Option, kSizeOption, kParentPidOption}) {
        world.arguments = complete;
        world.arguments.erase(option);
        EXPECT_THAT([&] { RunWorker(world.arguments); }, RaisesError("Missing update argument"));
    }
    EXPECT_TRUE(world.mutexes.empty());
}

TEST(WorkerChecks, RequireTheEventNameOnlyAfterTheApplicationsChecks) {
    WorkerWorld world;
    world.arguments[kEventOption] = L"";
    EXPECT_THAT([&] { RunWorker(world.arguments); }, RaisesError("Missing update argument"));
    EXPECT_EQ(world.actions,
              (std::vector<std::string>{"query elevation", "create mutex", "open parent",
                                        "query parent's image", "list processes"}));
}

TEST(WorkerMutex, IsOneForTheWholeMachineAndOwnedFromTheStart) {
    WorkerWorld world;
    EXPECT_EQ(RunWorker(world.arguments), 0);
    ASSERT_EQ(world.mutexes.size(), 1U);
    EXPECT_EQ(world.mutexes[0].name, kInstallMutexName);
    EXPECT_FALSE(world.mutexes[0].hasSecurityAttributes);
    EXPECT_TRUE(world.mutexes[0].initiallyOwned);
}

TEST(WorkerMutex, KeepsASecondWorkerOutAndStaysTheFirstOnes) {
    WorkerWorld world;
    const UniqueHandle first = OwnHandle(CreateMutexW(nullptr, FALSE, kInstallMutexName));
    ASSERT_TRUE(first);
    EXPECT_THAT([&] { RunWorker(world.arguments); }, RaisesError(kAnotherInstallation));
    EXPECT_TRUE(MutexExists());
    EXPECT_TRUE(world.openings.empty());
    EXPECT_TRUE(world.staging.creations.empty());
}

TEST(WorkerMutex, MustBeMade) {
    WorkerWorld world;
    // An object of another kind under the same name.
    const UniqueHandle obstacle = OwnHandle(CreateEventW(nullptr, TRUE, FALSE, kInstallMutexName));
    ASSERT_TRUE(obstacle);
    EXPECT_THAT([&] { RunWorker(world.arguments); }, RaisesError(kAnotherInstallation));
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
    WorkerWorld world;
    std::vector<DWORD> states;
    const auto whenReady = world.onReady;
    world.onReady = [&] {
        states.push_back(MutexState());
        whenReady();
    };
    world.installed.onSetupStart = [&] { states.push_back(MutexState()); };
    RunWorker(world.arguments);
    EXPECT_EQ(states, std::vector<DWORD>(2, WAIT_TIMEOUT));
    EXPECT_FALSE(MutexExists());
}

TEST(WorkerChecks, RefuseAParentThatHasEnded) {
    WorkerWorld world;
    world.application.EndAndForget();
    EXPECT_THAT([&] { RunWorker(world.arguments); }, RaisesError(kWrongParent));
}

TEST(WorkerChecks, RefuseAParentThatCannotBeOpened) {
    WorkerWorld world;
    world.faults.inaccessibleProcess = world.application.id;
    EXPECT_THAT([&] { RunWorker(world.arguments); }, RaisesError(kWrongParent));
}

TEST(WorkerChecks, RefuseAParentFromAnotherDirectoryBeforeAnyDirectoryIsMade) {
    WorkerWorld world;
    const StandInProcess stranger =
        StartStandInApplication(world.installed.directory.path / L"other" / L"corvellan.exe", 1);
    world.arguments[kParentPidOption] = std::to_wstring(stranger.id);
    world.actions.clear();
    EXPECT_THAT([&] { RunWorker(world.arguments); }, RaisesError(kWrongParent));
    EXPECT_EQ(world.actions, (std::vector<std::string>{"query elevation", "create mutex"}));
    EXPECT_TRUE(world.staging.creations.empty());
    EXPECT_TRUE(world.records.empty());
}

TEST(WorkerChecks, RefuseAParentWhoseImageCannotBeRead) {
    WorkerWorld world;
    world.faults.parentUnreadable = true;
    EXPECT_THAT([&] { RunWorker(world.arguments); },
                RaisesError("Cannot inspect application process"));
}

TEST(WorkerChecks, FindTheParentUnderAnotherSpellingOfItsDirectory) {
    WorkerWorld world;
    std::wstring spelling = world.installDirectory.native() + L"/./";
    spelling.replace(spelling.find(L"app"), 3, L"APP");
    world.arguments[kInstallDirOption] = spelling;
    EXPECT_EQ(RunWorker(world.arguments), 0);
    EXPECT_EQ(world.installed.processes.starts.at(0).commandLine.find(L"/./"), std::wstring::npos);
}

TEST(WorkerChecks, RefuseASecondInstanceOfTheApplication) {
    WorkerWorld world;
    const StandInProcess second = StartWaiting(world.installed.applicationPath);
    EXPECT_THAT([&] { RunWorker(world.arguments); },
                RaisesError("Another application instance is running; close it first"));
    EXPECT_TRUE(world.openings.empty());
}

TEST(WorkerChecks, RefuseAnInstanceThatCannotBeInspected) {
    WorkerWorld world;
    const StandInProcess stranger =
        StartStandInApplication(world.installed.directory.path / L"other" / L"corvellan.exe", 1);
    world.faults.inaccessibleProcess = stranger.id;
    EXPECT_THAT([&] { RunWorker(world.arguments); },
                RaisesError("Another application instance is inaccessible; close it first"));
}

TEST(WorkerEvents, AreOpenedWithTheRightsThatEachNeeds) {
    WorkerWorld world;
    RunWorker(world.arguments);
    ASSERT_EQ(world.openings.size(), 2U);
    EXPECT_EQ(world.openings[0].name, world.eventBaseName + L"-ready");
    EXPECT_EQ(world.openings[0].access, 2U);
    EXPECT_FALSE(world.openings[0].inherits);
    EXPECT_EQ(world.openings[1].name, world.eventBaseName + L"-commit");
    EXPECT_EQ(world.openings[1].access, 0x100000U);
    EXPECT_FALSE(world.openings[1].inherits);
}

TEST(WorkerEvents, MustBothExist) {
    for (UniqueHandle WorkerWorld::* missing : {&WorkerWorld::ready, &WorkerWorld::commit}) {
        WorkerWorld world;
        (world.*missing).reset();
        EXPECT_THAT([&] { RunWorker(world.arguments); }, RaisesError(kNoBroker));
        EXPECT_TRUE(world.staging.folderQueries.empty());
    }
}

constexpr FailingStep<WorkerWorld> kFailingSteps[] = {
    {"Administrator authorization is required",
     [](WorkerWorld& world) { world.faults.notElevated = true; }},
    {"invalid stoull argument", [](WorkerWorld& world) { world.arguments[kSizeOption] = L"abc"; }},
    {"invalid stoul argument",
     [](WorkerWorld& world) { world.arguments[kParentPidOption] = L"abc"; }},
    {kAnotherInstallation,
     [](WorkerWorld& world) {
         world.mutexOfAnotherWorker = OwnHandle(CreateMutexW(nullptr, FALSE, kInstallMutexName));
     }},
    {"Cannot inspect application process",
     [](WorkerWorld& world) { world.faults.parentUnreadable = true; }},
    {"Cannot enumerate running applications",
     [](WorkerWorld& world) { world.installed.faults.unreadableProcessLists = {1, 2}; }},
    {"Missing update argument", [](WorkerWorld& world) { world.arguments.erase(kEventOption); }},
    {kNoBroker, [](WorkerWorld& world) { world.ready.reset(); }},
    {"Cannot locate machine staging directory",
     [](WorkerWorld& world) { world.staging.faults.folderUnknown = true; }},
    {"Cannot create update job identity",
     [](WorkerWorld& world) { world.staging.faults.identityUnavailable = true; }},
    {"Cannot create protected staging directory",
     [](WorkerWorld& world) { world.staging.faults.securityUnavailable = true; }},
    {"Protected staging directory already exists or is inaccessible",
     [](WorkerWorld& world) { world.staging.faults.directoryUnavailable = true; }},
    {"Protected installer size or SHA256 mismatch",
     [](WorkerWorld& world) { world.arguments[kSha256Option] = L"0"; }},
    {"Cannot write update status",
     [](WorkerWorld& world) {
         world.installed.faults.unwritableStates = {"authorized", "installing", "cancelled"};
     }},
    {"Cannot enumerate running applications",
     [](WorkerWorld& world) { world.installed.faults.unreadableProcessLists.insert(2); }},
    {"Cannot read installed executable version",
     [](WorkerWorld& world) { world.installed.faults.unreadableVersions = {1}; }},
};

TEST(WorkerChecks, FailInTheirOrder) {
    ExpectFailuresInOrder<WorkerWorld>(
        kFailingSteps, [](const WorkerWorld& world) { RunWorker(world.arguments); });
}

TEST(WorkerSteps, OfASuccessfulInstallationFollowEachOther) {
    WorkerWorld world;
    EXPECT_EQ(RunWorker(world.arguments), 0);
    EXPECT_EQ(world.actions, (std::vector<std::string>{"query elevation",
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
                                                       "write installing",
                                                       "start setup",
                                                       "read version",
                                                       "write succeeded"}));
}

}  // namespace
}  // namespace updater
