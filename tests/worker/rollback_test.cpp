#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <stdexcept>
#include <vector>

#include "fixtures/application_names.h"
#include "fixtures/doubles/updater_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/processes/failing_steps.h"
#include "fixtures/processes/stand_in_process.h"
#include "fixtures/raised_errors.h"
#include "fixtures/scenes/installation_scene.h"
#include "support/file_system.h"
#include "support/text_conversion.h"
#include "worker/installation.h"

namespace updater {
namespace {

constexpr char kRestored[] = "; previous program restored";

void RemoveEntry() {
    ReplaceUninstallEntry({});
}

// What happens to the installation, the message before its suffix, and how it comes about.
struct FailedInstallation {
    const char* name;
    const char* message;
    void (*arrange)(InstallationScene& scene);
};

void ReplaceInventory(const InstallationScene& scene, const std::string& content) {
    WriteFileContent(scene.package / L"program-files.tsv", content);
}

const FailedInstallation kFailedInstallations[] = {
    {"InstallingUnwritable", "Cannot write update status",
     [](InstallationScene& scene) { scene.faults.unwritableStates = {"installing"}; }},
    {"SetupMissing", "Process launch failed: 2",
     [](InstallationScene& scene) { RemoveFile(scene.installation.setupProgram); }},
    {"SetupNoProgram", "Process launch failed: 193",
     [](InstallationScene& scene) {
         WriteFileContent(scene.installation.setupProgram, "no executable");
     }},
    {"SetupExitsWith1", "Inno Setup did not complete; exit code=1",
     [](InstallationScene& scene) { scene.LetSetupEndWith("1"); }},
    {"SetupExitsWith2", "Inno Setup did not complete; exit code=2",
     [](InstallationScene& scene) { scene.LetSetupEndWith("2"); }},
    {"SetupCrashes", "Inno Setup did not complete; exit code=3221225477",
     [](InstallationScene& scene) { scene.LetSetupEndWith("3221225477"); }},
    {"SetupExitsWithTheGreatestCode", "Inno Setup did not complete; exit code=4294967295",
     [](InstallationScene& scene) { scene.LetSetupEndWith("4294967295"); }},
    {"OtherVersionInstalled", "Installed executable version mismatch",
     [](InstallationScene& scene) { scene.installation.expectedVersion = L"2.0.0.1"; }},
    {"NothingInstalled", "Installed executable version mismatch",
     [](InstallationScene& scene) { scene.setupSteps = {"exit\t0"}; }},
    {"FewerVersionComponents", "Installed executable version mismatch",
     [](InstallationScene& scene) { scene.installation.expectedVersion = L"2.0.0"; }},
    {"MoreVersionComponents", "Installed executable version mismatch",
     [](InstallationScene& scene) { scene.installation.expectedVersion = L"2.0.0.0.0"; }},
    {"LeadingZero", "Installed executable version mismatch",
     [](InstallationScene& scene) { scene.installation.expectedVersion = L"02.0.0.0"; }},
    {"BlankAtTheEnd", "Installed executable version mismatch",
     [](InstallationScene& scene) { scene.installation.expectedVersion = L"2.0.0.0 "; }},
    {"LettersInTheVersion", "Installed executable version mismatch",
     [](InstallationScene& scene) { scene.installation.expectedVersion = L"V2.0.0.0"; }},
    {"ExecutableGone", "Cannot read installed executable version",
     [](InstallationScene& scene) { scene.setupSteps = {"delete\t" IDENTITY_EXECUTABLE}; }},
    {"InventoryMissing", "Installed program inventory is missing",
     [](InstallationScene& scene) {
         scene.setupSteps.insert(scene.setupSteps.end() - 1, "delete\tprogram-files.tsv");
     }},
    {"InventoryEmpty", "Installed program inventory is empty",
     [](InstallationScene& scene) { ReplaceInventory(scene, ""); }},
    {"InventoryWithoutTab", "Invalid program inventory",
     [](InstallationScene& scene) { ReplaceInventory(scene, IDENTITY_EXECUTABLE "\n"); }},
    {"InventoryTraversing", "Invalid program inventory traversal",
     [](InstallationScene& scene) { ReplaceInventory(scene, "..\\x\t0\n"); }},
    {"InventoryRooted", "Invalid program inventory path",
     [](InstallationScene& scene) { ReplaceInventory(scene, "C:\\x\t0\n"); }},
    {"InventoriedFileMissing", "SHA256 verification failed",
     [](InstallationScene& scene) { ReplaceInventory(scene, "data/none.so\t0\n"); }},
    {"InventoryMismatching",
     "Installed program checksum mismatch: data/\xE8\xB5\x84\xE6\xBA\x90 1/ui.bin",
     [](InstallationScene& scene) {
         ReplaceInventory(scene, "data/\xE8\xB5\x84\xE6\xBA\x90 1/ui.bin\t0\n");
     }},
    {"SucceededUnwritable", "Cannot write update status",
     [](InstallationScene& scene) { scene.faults.unwritableStates = {"succeeded"}; }},
};

struct Rollback : testing::TestWithParam<FailedInstallation> {};

TEST_P(Rollback, RestoresProgramAndRegisteredVersionAndReportsTheFailure) {
    InstallationScene scene;
    const auto before = ReadTreeContent(scene.installation.installDirectory);
    GetParam().arrange(scene);
    EXPECT_EQ(InstallUpdate(scene.installation), 1);
    const StatusRecord expected = {"failed", std::string(GetParam().message) + kRestored, 1};
    EXPECT_EQ(scene.status.records.back(), expected);
    EXPECT_EQ(ReadStatusRecord(scene.installation.jobDirectory), expected);
    EXPECT_EQ(ReadTreeContent(scene.installation.installDirectory), before);
    EXPECT_EQ(RegisteredVersion(), L"1.0");
}

INSTANTIATE_TEST_SUITE_P(After, Rollback, testing::ValuesIn(kFailedInstallations),
                         [](const auto& test) { return test.param.name; });

std::vector<std::string> ActionsFromSetupOn(const InstallationScene& scene) {
    return {std::ranges::find(scene.actions, "start setup"), scene.actions.end()};
}

TEST(RollbackSteps, FollowEachOther) {
    InstallationScene scene;
    scene.LetSetupEndWith("1");
    InstallUpdate(scene.installation);
    EXPECT_EQ(ActionsFromSetupOn(scene),
              (std::vector<std::string>{"start setup", "list processes", "restore", "read version",
                                        "write failed"}));
    EXPECT_EQ(RegisteredVersion(), L"1.0");
}

TEST(RollbackSteps, KeepWhatTheSetupProgramMadeOfTheUsersFiles) {
    InstallationScene scene;
    scene.LetSetupEndWith("1");
    WriteFileContent(scene.package / L"account.db", "changed");
    WriteFileContent(scene.package / L"notes.txt", "new");
    for (const char* file : {"account.db", "notes.txt"}) {
        scene.setupSteps.insert(
            scene.setupSteps.begin(),
            "copy\t" + WideToUtf8((scene.package / file).native()) + "\t" + file);
    }
    EXPECT_EQ(InstallUpdate(scene.installation), 1);
    const auto after = ReadTreeContent(scene.installation.installDirectory);
    EXPECT_EQ(after.at(L"account.db"), "changed");
    EXPECT_EQ(after.at(L"notes.txt"), "new");
    EXPECT_FALSE(after.contains(L"added.dll"));
}

TEST(RollbackSteps, TellWhenTheRestoredVersionIsAnother) {
    InstallationScene scene;
    scene.LetSetupEndWith("2");
    scene.onVersionRead = [&](int number) {
        if (number == 2) {
            CopyOverFile(StandInApplication(2), scene.applicationPath);
        }
    };
    EXPECT_EQ(InstallUpdate(scene.installation), 1);
    EXPECT_EQ(
        scene.status.records.back(),
        (StatusRecord{"failed",
                      "Inno Setup did not complete; exit code=2; restore version mismatch", 1}));
}

TEST(RollbackSteps, RestoreTheRegisteredVersionBeforeTheVersionIsCompared) {
    InstallationScene scene;
    scene.LetSetupEndWith("1");
    std::wstring registered;
    scene.onVersionRead = [&](int) { registered = RegisteredVersion(); };
    InstallUpdate(scene.installation);
    EXPECT_EQ(registered, L"1.0");
}

constexpr FailingStep<InstallationScene> kInstallationSteps[] = {
    {"Cannot write update status; previous program restored",
     [](InstallationScene& scene) { scene.faults.unwritableStates.insert("installing"); }},
    {"Process launch failed: 5; previous program restored",
     [](InstallationScene& scene) {
         scene.processes.beforeStart = [](const ProcessStart&) { return ERROR_ACCESS_DENIED; };
     }},
    {"Inno Setup did not complete; exit code=1; previous program restored",
     [](InstallationScene& scene) { scene.setupSteps.back() = "exit\t1"; }},
    {"Installed executable version mismatch; previous program restored",
     [](InstallationScene& scene) { scene.installation.expectedVersion = L"3.0.0.0"; }},
    {"Installed program inventory is empty; previous program restored",
     [](InstallationScene& scene) { ReplaceInventory(scene, ""); }},
    {"Cannot write update status; previous program restored",
     [](InstallationScene& scene) { scene.faults.unwritableStates.insert("succeeded"); }},
};

TEST(InstallationSteps, FailInTheirOrder) {
    ExpectFailuresInOrder<InstallationScene>(
        kInstallationSteps, [](const InstallationScene& scene) {
            if (InstallUpdate(scene.installation) != 0) {
                throw std::runtime_error(scene.status.records.back().message);
            }
        });
}

// An installation that fails after everything was installed.
struct FailedSetup : InstallationScene {
    FailedSetup() { LetSetupEndWith("1"); }
};

constexpr FailingStep<FailedSetup> kRollbackSteps[] = {
    {"Cannot enumerate running applications",
     [](FailedSetup& scene) { scene.faults.unreadableProcessLists = {2}; }},
    {"Restored program checksum mismatch",
     [](FailedSetup& scene) { scene.faults.restoreCorrupted = true; }},
    {"Cannot restore registered version",
     [](FailedSetup& scene) {
         scene.onSetupStart = [] { RemoveEntry(); };
         std::erase(scene.setupSteps, "register\t2.0");
     }},
    {"Cannot read installed executable version",
     [](FailedSetup& scene) { scene.faults.unreadableVersions = {2}; }},
    {"Cannot write update status",
     [](FailedSetup& scene) { scene.faults.unwritableStates = {"failed"}; }},
};

TEST(RollbackSteps, FailInTheirOrder) {
    ExpectFailuresInOrder<FailedSetup>(
        kRollbackSteps, [](const FailedSetup& scene) { InstallUpdate(scene.installation); });
}

// What was done when that step had failed, and the version that was registered then: "2.0" is the
// setup program's, "1.0" the previous one.
struct StoppedRollback {
    std::vector<std::string> actions;
    std::wstring registeredVersion;
};

const StoppedRollback kStoppedRollbacks[] = {
    {{"start setup", "list processes"}, L"2.0"},
    {{"start setup", "list processes", "restore"}, L"2.0"},
    {{"start setup", "list processes", "restore"}, L""},
    {{"start setup", "list processes", "restore", "read version"}, L"1.0"},
    {{"start setup", "list processes", "restore", "read version", "write failed"}, L"1.0"},
};
static_assert(std::size(kStoppedRollbacks) == std::size(kRollbackSteps));

TEST(RollbackSteps, StopAtTheFirstThatFails) {
    for (std::size_t index = 0; index < std::size(kRollbackSteps); ++index) {
        const FailingStep<FailedSetup>& step = kRollbackSteps[index];
        SCOPED_TRACE(step.message);
        FailedSetup scene;
        step.breakStep(scene);
        EXPECT_THAT([&] { InstallUpdate(scene.installation); }, RaisesError(step.message));
        EXPECT_EQ(scene.status.records.back().state, "installing");
        EXPECT_EQ(ActionsFromSetupOn(scene), kStoppedRollbacks[index].actions);
        EXPECT_EQ(RegisteredVersion(), kStoppedRollbacks[index].registeredVersion);
    }
}

TEST(RollbackSteps, TouchNothingWhileTheApplicationRuns) {
    InstallationScene scene;
    scene.setupSteps = {"exit\t1"};
    StandInProcess instance;
    scene.onSetupStart = [&] {
        WriteFileContent(scene.installation.installDirectory / L"added.dll", "new");
        instance = StartWaiting(scene.applicationPath);
    };
    EXPECT_THAT([&] { InstallUpdate(scene.installation); },
                RaisesError("Another application instance is running; close it first"));
    EXPECT_TRUE(PathExists(scene.installation.installDirectory / L"added.dll"));
}

// No process has the number 0.
TEST(RollbackSteps, LookLikeTheInstallationForEveryInstanceWithoutAnException) {
    InstallationScene scene;
    scene.LetSetupEndWith("1");
    std::vector<std::uint32_t> exceptions;
    const ScopedReplacement looking(
        doubles::EnsureNoOtherInstance,
        [&exceptions](const std::filesystem::path& application, std::uint32_t allowedProcessId) {
            exceptions.push_back(allowedProcessId);
            EnsureNoOtherInstance(application, allowedProcessId);
        });
    EXPECT_EQ(InstallUpdate(scene.installation), 1);
    EXPECT_EQ(exceptions, (std::vector<std::uint32_t>{0, 0}));
}

TEST(RollbackSteps, RaiseWhenTheBackupHasGone) {
    InstallationScene scene;
    scene.LetSetupEndWith("1");
    scene.onSetupStart = [&] {
        RemoveFile(scene.installation.stagingDirectory / L"backup" / kExecutableName);
    };
    EXPECT_THAT([&] { InstallUpdate(scene.installation); }, RaisesFileSystemError("copy_file"));
    EXPECT_EQ(RegisteredVersion(), L"2.0");
}

// What stood in the registry before, and what stands there after the setup program wrote "2.0" and
// the rollback ran.
struct PreviousRegistration {
    const char* name;
    std::wstring after;
    void (*arrange)();
};

const PreviousRegistration kPreviousRegistrations[] = {
    {"Text", L"1.0 \u7248",
     [] { WriteUninstallValue(kDisplayVersion, RegistryText(L"1.0 \u7248")); }},
    {"LongestText", std::wstring(511, L'1'),
     [] { WriteUninstallValue(kDisplayVersion, RegistryText(std::wstring(511, L'1'))); }},
    {"TooLongText", L"2.0",
     [] { WriteUninstallValue(kDisplayVersion, RegistryText(std::wstring(512, L'1'))); }},
    {"EmptyText", L"2.0", [] { WriteUninstallValue(kDisplayVersion, RegistryText(L"")); }},
    {"Number", L"2.0",
     [] { WriteUninstallValue(kDisplayVersion, {REG_DWORD, std::string("\1\0\0\0", 4)}); }},
    {"OtherValueOnly", L"2.0",
     [] {
         RemoveEntry();
         WriteUninstallValue(L"DisplayName", RegistryText(L"Program"));
     }},
    {"NoEntry", L"2.0", [] { RemoveEntry(); }},
    {"EntryOf32BitView", L"2.0",
     [] {
         RemoveEntry();
         WriteUninstallValue(kDisplayVersion, RegistryText(L"0.9"), RegistryView::Of32Bit);
     }},
};

struct RegisteredVersionAfterRollback : testing::TestWithParam<PreviousRegistration> {};

TEST_P(RegisteredVersionAfterRollback, IsThePreviousTextIfThereWasOne) {
    InstallationScene scene;
    GetParam().arrange();
    scene.setupSteps = {"exit\t1"};
    scene.onSetupStart = [] { WriteUninstallValue(kDisplayVersion, RegistryText(L"2.0")); };
    EXPECT_EQ(InstallUpdate(scene.installation), 1);
    EXPECT_EQ(scene.status.records.back().message,
              "Inno Setup did not complete; exit code=1; previous program restored");
    EXPECT_EQ(RegisteredVersion(), GetParam().after);
}

INSTANTIATE_TEST_SUITE_P(From, RegisteredVersionAfterRollback,
                         testing::ValuesIn(kPreviousRegistrations),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace updater
