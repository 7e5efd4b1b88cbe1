#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "fixtures/file_content.h"
#include "fixtures/processes/failing_steps.h"
#include "fixtures/processes/stand_in_process.h"
#include "fixtures/raised_errors.h"
#include "support/file_system.h"
#include "support/text_conversion.h"
#include "worker/installation.h"
#include "worker/installation_world.h"

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
    void (*arrange)(InstallationWorld& world);
};

void ReplaceInventory(const InstallationWorld& world, const std::string& content) {
    WriteFileContent(world.package / L"program-files.tsv", content);
}

const FailedInstallation kFailedInstallations[] = {
    {"InstallingUnwritable", "Cannot write update status",
     [](InstallationWorld& world) { world.faults.unwritableStates = {"installing"}; }},
    {"SetupMissing", "Process launch failed: 2",
     [](InstallationWorld& world) { RemoveFile(world.installation.setupProgram); }},
    {"SetupNoProgram", "Process launch failed: 193",
     [](InstallationWorld& world) {
         WriteFileContent(world.installation.setupProgram, "no executable");
     }},
    {"SetupExitsWith1", "Inno Setup did not complete; exit code=1",
     [](InstallationWorld& world) { world.LetSetupEndWith("1"); }},
    {"SetupExitsWith2", "Inno Setup did not complete; exit code=2",
     [](InstallationWorld& world) { world.LetSetupEndWith("2"); }},
    {"SetupCrashes", "Inno Setup did not complete; exit code=3221225477",
     [](InstallationWorld& world) { world.LetSetupEndWith("3221225477"); }},
    {"SetupExitsWithTheGreatestCode", "Inno Setup did not complete; exit code=4294967295",
     [](InstallationWorld& world) { world.LetSetupEndWith("4294967295"); }},
    {"OtherVersionInstalled", "Installed executable version mismatch",
     [](InstallationWorld& world) { world.installation.expectedVersion = L"2.0.0.1"; }},
    {"NothingInstalled", "Installed executable version mismatch",
     [](InstallationWorld& world) { world.setupSteps = {"exit\t0"}; }},
    {"FewerVersionComponents", "Installed executable version mismatch",
     [](InstallationWorld& world) { world.installation.expectedVersion = L"2.0.0"; }},
    {"MoreVersionComponents", "Installed executable version mismatch",
     [](InstallationWorld& world) { world.installation.expectedVersion = L"2.0.0.0.0"; }},
    {"LeadingZero", "Installed executable version mismatch",
     [](InstallationWorld& world) { world.installation.expectedVersion = L"02.0.0.0"; }},
    {"BlankAtTheEnd", "Installed executable version mismatch",
     [](InstallationWorld& world) { world.installation.expectedVersion = L"2.0.0.0 "; }},
    {"LettersInTheVersion", "Installed executable version mismatch",
     [](InstallationWorld& world) { world.installation.expectedVersion = L"V2.0.0.0"; }},
    {"ExecutableGone", "Cannot read installed executable version",
     [](InstallationWorld& world) { world.setupSteps = {"delete\tcorvellan.exe"}; }},
    {"InventoryMissing", "Installed program inventory is missing",
     [](InstallationWorld& world) {
         world.setupSteps.insert(world.setupSteps.end() - 1, "delete\tprogram-files.tsv");
     }},
    {"InventoryEmpty", "Installed program inventory is empty",
     [](InstallationWorld& world) { ReplaceInventory(world, ""); }},
    {"InventoryWithoutTab", "Invalid program inventory",
     [](InstallationWorld& world) { ReplaceInventory(world, "corvellan.exe\n"); }},
    {"InventoryTraversing", "Invalid program inventory traversal",
     [](InstallationWorld& world) { ReplaceInventory(world, "..\\x\t0\n"); }},
    {"InventoryRooted", "Invalid program inventory path",
     [](InstallationWorld& world) { ReplaceInventory(world, "C:\\x\t0\n"); }},
    {"InventoriedFileMissing", "SHA256 verification failed",
     [](InstallationWorld& world) { ReplaceInventory(world, "data/none.so\t0\n"); }},
    {"InventoryMismatching",
     "Installed program checksum mismatch: data/\xE8\xB5\x84\xE6\xBA\x90 1/ui.bin",
     [](InstallationWorld& world) {
         ReplaceInventory(world, "data/\xE8\xB5\x84\xE6\xBA\x90 1/ui.bin\t0\n");
     }},
    {"SucceededUnwritable", "Cannot write update status",
     [](InstallationWorld& world) { world.faults.unwritableStates = {"succeeded"}; }},
};

struct Rollback : testing::TestWithParam<FailedInstallation> {};

TEST_P(Rollback, RestoresProgramAndRegisteredVersionAndReportsTheFailure) {
    InstallationWorld world;
    const auto before = ReadTreeContent(world.installation.installDirectory);
    GetParam().arrange(world);
    EXPECT_EQ(InstallUpdate(world.installation), 1);
    const StatusRecord expected = {"failed", std::string(GetParam().message) + kRestored, 1};
    EXPECT_EQ(world.status.records.back(), expected);
    EXPECT_EQ(ReadStatusRecord(world.installation.jobDirectory), expected);
    EXPECT_EQ(ReadTreeContent(world.installation.installDirectory), before);
    EXPECT_EQ(RegisteredVersion(), L"1.0");
}

INSTANTIATE_TEST_SUITE_P(After, Rollback, testing::ValuesIn(kFailedInstallations),
                         [](const auto& test) { return test.param.name; });

std::vector<std::string> ActionsFromSetupOn(const InstallationWorld& world) {
    return {std::ranges::find(world.actions, "start setup"), world.actions.end()};
}

TEST(RollbackSteps, FollowEachOther) {
    InstallationWorld world;
    world.LetSetupEndWith("1");
    InstallUpdate(world.installation);
    EXPECT_EQ(ActionsFromSetupOn(world),
              (std::vector<std::string>{"start setup", "list processes", "restore", "read version",
                                        "write failed"}));
    EXPECT_EQ(RegisteredVersion(), L"1.0");
}

TEST(RollbackSteps, KeepWhatTheSetupProgramMadeOfTheUsersFiles) {
    InstallationWorld world;
    world.LetSetupEndWith("1");
    WriteFileContent(world.package / L"account.db", "changed");
    WriteFileContent(world.package / L"notes.txt", "new");
    for (const char* file : {"account.db", "notes.txt"}) {
        world.setupSteps.insert(
            world.setupSteps.begin(),
            "copy\t" + WideToUtf8((world.package / file).native()) + "\t" + file);
    }
    EXPECT_EQ(InstallUpdate(world.installation), 1);
    const auto after = ReadTreeContent(world.installation.installDirectory);
    EXPECT_EQ(after.at(L"account.db"), "changed");
    EXPECT_EQ(after.at(L"notes.txt"), "new");
    EXPECT_FALSE(after.contains(L"added.dll"));
}

TEST(RollbackSteps, TellWhenTheRestoredVersionIsAnother) {
    InstallationWorld world;
    world.LetSetupEndWith("2");
    world.onVersionRead = [&](int number) {
        if (number == 2) {
            CopyOverFile(StandInApplication(2), world.applicationPath);
        }
    };
    EXPECT_EQ(InstallUpdate(world.installation), 1);
    EXPECT_EQ(
        world.status.records.back(),
        (StatusRecord{"failed",
                      "Inno Setup did not complete; exit code=2; restore version mismatch", 1}));
}

TEST(RollbackSteps, RestoreTheRegisteredVersionBeforeTheVersionIsCompared) {
    InstallationWorld world;
    world.LetSetupEndWith("1");
    std::wstring registered;
    world.onVersionRead = [&](int) { registered = RegisteredVersion(); };
    InstallUpdate(world.installation);
    EXPECT_EQ(registered, L"1.0");
}

constexpr FailingStep<InstallationWorld> kInstallationSteps[] = {
    {"Cannot write update status; previous program restored",
     [](InstallationWorld& world) { world.faults.unwritableStates.insert("installing"); }},
    {"Process launch failed: 5; previous program restored",
     [](InstallationWorld& world) {
         world.processes.beforeStart = [](const ProcessStart&) { return ERROR_ACCESS_DENIED; };
     }},
    {"Inno Setup did not complete; exit code=1; previous program restored",
     [](InstallationWorld& world) { world.setupSteps.back() = "exit\t1"; }},
    {"Installed executable version mismatch; previous program restored",
     [](InstallationWorld& world) { world.installation.expectedVersion = L"3.0.0.0"; }},
    {"Installed program inventory is empty; previous program restored",
     [](InstallationWorld& world) { ReplaceInventory(world, ""); }},
    {"Cannot write update status; previous program restored",
     [](InstallationWorld& world) { world.faults.unwritableStates.insert("succeeded"); }},
};

TEST(InstallationSteps, FailInTheirOrder) {
    ExpectFailuresInOrder<InstallationWorld>(
        kInstallationSteps, [](const InstallationWorld& world) {
            if (InstallUpdate(world.installation) != 0) {
                throw std::runtime_error(world.status.records.back().message);
            }
        });
}

// An installation that fails after everything was installed.
struct FailedSetup : InstallationWorld {
    FailedSetup() { LetSetupEndWith("1"); }
};

constexpr FailingStep<FailedSetup> kRollbackSteps[] = {
    {"Cannot enumerate running applications",
     [](FailedSetup& world) { world.faults.unreadableProcessLists = {2}; }},
    {"Restored program checksum mismatch",
     [](FailedSetup& world) { world.faults.restoreCorrupted = true; }},
    {"Cannot restore registered version",
     [](FailedSetup& world) {
         world.onSetupStart = [] { RemoveEntry(); };
         std::erase(world.setupSteps, "register\t2.0");
     }},
    {"Cannot read installed executable version",
     [](FailedSetup& world) { world.faults.unreadableVersions = {2}; }},
    {"Cannot write update status",
     [](FailedSetup& world) { world.faults.unwritableStates = {"failed"}; }},
};

TEST(RollbackSteps, FailInTheirOrder) {
    ExpectFailuresInOrder<FailedSetup>(
        kRollbackSteps, [](const FailedSetup& world) { InstallUpdate(world.installation); });
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
        FailedSetup world;
        step.breakStep(world);
        EXPECT_THAT([&] { InstallUpdate(world.installation); }, RaisesError(step.message));
        EXPECT_EQ(world.status.records.back().state, "installing");
        EXPECT_EQ(ActionsFromSetupOn(world), kStoppedRollbacks[index].actions);
        EXPECT_EQ(RegisteredVersion(), kStoppedRollbacks[index].registeredVersion);
    }
}

TEST(RollbackSteps, TouchNothingWhileTheApplicationRuns) {
    InstallationWorld world;
    world.setupSteps = {"exit\t1"};
    StandInProcess instance;
    world.onSetupStart = [&] {
        WriteFileContent(world.installation.installDirectory / L"added.dll", "new");
        instance = StartWaiting(world.applicationPath);
    };
    EXPECT_THAT([&] { InstallUpdate(world.installation); },
                RaisesError("Another application instance is running; close it first"));
    EXPECT_TRUE(PathExists(world.installation.installDirectory / L"added.dll"));
}

TEST(RollbackSteps, RaiseWhenTheBackupHasGone) {
    InstallationWorld world;
    world.LetSetupEndWith("1");
    world.onSetupStart = [&] {
        RemoveFile(world.installation.stagingDirectory / L"backup" / L"corvellan.exe");
    };
    EXPECT_THAT([&] { InstallUpdate(world.installation); }, RaisesFileSystemError("copy_file"));
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
         WriteUninstallValue(L"DisplayName", RegistryText(L"Corvellan"));
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
    InstallationWorld world;
    GetParam().arrange();
    world.setupSteps = {"exit\t1"};
    world.onSetupStart = [] { WriteUninstallValue(kDisplayVersion, RegistryText(L"2.0")); };
    EXPECT_EQ(InstallUpdate(world.installation), 1);
    EXPECT_EQ(world.status.records.back().message,
              "Inno Setup did not complete; exit code=1; previous program restored");
    EXPECT_EQ(RegisteredVersion(), GetParam().after);
}

INSTANTIATE_TEST_SUITE_P(From, RegisteredVersionAfterRollback,
                         testing::ValuesIn(kPreviousRegistrations),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace updater
