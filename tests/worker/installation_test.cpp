#include "worker/installation.h"

#include <gtest/gtest.h>

#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/processes/expected_records.h"
#include "fixtures/processes/failing_steps.h"
#include "fixtures/processes/stand_in_process.h"
#include "fixtures/raised_errors.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/text_conversion.h"
#include "worker/installation_world.h"

namespace updater {
namespace {

StatusRecord RolledBack(const std::string& failure) {
    return {"failed", failure + "; previous program restored", 1};
}

TEST(Installation, InstallsTheNewVersionAndKeepsTheUsersFiles) {
    InstallationWorld world;
    const auto packaged = ReadTreeContent(world.package);
    EXPECT_EQ(InstallUpdate(world.installation), 0);
    EXPECT_EQ(
        world.status.records,
        (std::vector<StatusRecord>{kInstalling, {"succeeded", "Installed version 2.0.0.0", 0}}));
    EXPECT_EQ(ReadStatusRecord(world.installation.jobDirectory), world.status.records.back());
    auto expected = packaged;
    expected[L"account.db"] = "the user's";
    EXPECT_EQ(ReadTreeContent(world.installation.installDirectory), expected);
    EXPECT_EQ(RegisteredVersion(), L"2.0");
}

TEST(Installation, TakesItsStepsInTheirOrder) {
    InstallationWorld world;
    InstallUpdate(world.installation);
    EXPECT_EQ(world.actions,
              (std::vector<std::string>{"list processes", "read version", "read registered version",
                                        "back up", "write installing", "start setup",
                                        "read version", "write succeeded"}));
}

TEST(Installation, LeavesSetupProgramBackupAndLogInTheStagingDirectory) {
    for (const char* exitCode : {"0", "1"}) {
        InstallationWorld world;
        auto previous = ReadTreeContent(world.installation.installDirectory);
        previous.erase(L"account.db");
        world.LetSetupEndWith(exitCode);
        InstallUpdate(world.installation);
        const std::filesystem::path& staging = world.installation.stagingDirectory;
        EXPECT_EQ(ReadTreeContent(staging / L"backup"), previous);
        EXPECT_TRUE(PathExists(staging / L"installer.exe"));
        EXPECT_TRUE(PathExists(staging / L"install.log"));
    }
}

TEST(Installation, ReadsTheRegisteredVersionOfThe64BitView) {
    InstallationWorld world;
    InstallUpdate(world.installation);
    ASSERT_EQ(world.registryQueries.size(), 1U);
    const RegistryQuery& query = world.registryQueries.front();
    EXPECT_EQ(query.root, HKEY_LOCAL_MACHINE);
    EXPECT_EQ(query.key,
              LR"(SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\)"
              LR"(5D1E7B20-3C9A-4F68-B2D4-9E0A6C7F1B35_is1)");
    EXPECT_EQ(query.value, L"DisplayVersion");
    EXPECT_EQ(query.flags, 0x10002U);
    EXPECT_FALSE(query.asksForType);
    EXPECT_TRUE(query.bufferIsZero);
    EXPECT_EQ(query.bytes, 1024U);
}

TEST(SetupProgram, IsTheStagedCopyWithExactlyItsSwitches) {
    InstallationWorld world;
    InstallUpdate(world.installation);
    ASSERT_EQ(world.processes.starts.size(), 1U);
    const ProcessStart& start = world.processes.starts.front();
    EXPECT_EQ(start.application, world.installation.setupProgram.native());
    EXPECT_EQ(start.commandLine, world.ExpectedCommandLine());
    EXPECT_EQ(start.workingDirectory, world.installation.stagingDirectory.native());
    ExpectPlainStart(start);
}

TEST(SetupProgram, ReceivesTheDirectoriesAsTheyAre) {
    InstallationWorld world;
    InstallUpdate(world.installation);
    const std::wstring staging = world.installation.stagingDirectory.native();
    EXPECT_EQ(Utf8ToWide(ReadFileContent(staging + L"\\install.log")),
              staging + L"\n" + world.installation.setupProgram.native() +
                  L"\n/VERYSILENT\n/SUPPRESSMSGBOXES\n/NORESTART\n/SP-\n/NOCLOSEAPPLICATIONS\n"
                  L"/NOFORCECLOSEAPPLICATIONS\n/NORESTARTAPPLICATIONS\n/DIR=" +
                  world.installation.installDirectory.native() + L"\n/LOG=" + staging +
                  L"\\install.log\n");
}

TEST(SetupProgram, GetsADirectoryWithABackslashAtItsEndQuoted) {
    InstallationWorld world;
    const std::wstring given = world.installation.installDirectory.native() + L"\\";
    world.installation.installDirectory = given;
    EXPECT_EQ(InstallUpdate(world.installation), 0);
    EXPECT_NE(world.processes.starts.at(0).commandLine.find(L" /DIR=\"" + given + L"\\\" /LOG="),
              std::wstring::npos);
    const std::string log = ReadFileContent(world.installation.stagingDirectory / L"install.log");
    EXPECT_NE(log.find("/DIR=" + WideToUtf8(given) + "\n"), std::string::npos);
}

void EndSetupProgram(const InstallationWorld& world, UINT exitCode) {
    const UniqueHandle setup =
        OwnHandle(OpenProcess(PROCESS_TERMINATE, FALSE, world.processes.starts.back().processId));
    TerminateProcess(setup.get(), exitCode);
    AwaitEndOfProcess(world.processes.starts.back().processId);
}

TEST(SetupProgram, IsWaitedForWithoutALimit) {
    InstallationWorld world;
    world.setupSteps = {"wait"};
    constexpr ULONGLONG kYear = 31'536'000'000;
    world.time.After(kYear, [&] { EndSetupProgram(world, 7); });
    EXPECT_EQ(InstallUpdate(world.installation), 1);
    EXPECT_EQ(world.time.WaitsForProcess(world.processes.starts.at(0).processId),
              std::vector<DWORD>{INFINITE});
    EXPECT_EQ(world.status.records.back(), RolledBack("Inno Setup did not complete; exit code=7"));
}

// A failure before "installing": nothing is changed, nothing is rolled back.
constexpr FailingStep<InstallationWorld> kPreparationSteps[] = {
    {"Cannot enumerate running applications",
     [](InstallationWorld& world) { world.faults.unreadableProcessLists = {1}; }},
    {"Cannot read installed executable version",
     [](InstallationWorld& world) { world.faults.unreadableVersions = {1}; }},
    {"Program backup checksum mismatch",
     [](InstallationWorld& world) { world.faults.backupCorrupted = true; }},
};

TEST(InstallationPreparation, FailsInItsOrder) {
    ExpectFailuresInOrder<InstallationWorld>(kPreparationSteps, [](const InstallationWorld& world) {
        InstallUpdate(world.installation);
    });
}

void ExpectNothingDone(InstallationWorld& world, const char* message) {
    const auto before = ReadTreeContent(world.installation.installDirectory);
    EXPECT_THAT([&] { InstallUpdate(world.installation); }, RaisesError(message));
    EXPECT_TRUE(world.status.records.empty());
    EXPECT_TRUE(world.processes.starts.empty());
    EXPECT_EQ(ReadTreeContent(world.installation.installDirectory), before);
    EXPECT_EQ(RegisteredVersion(), L"1.0");
}

TEST(InstallationPreparation, ChangesNothingWhenItFails) {
    for (const FailingStep<InstallationWorld>& step : kPreparationSteps) {
        SCOPED_TRACE(step.message);
        InstallationWorld world;
        step.breakStep(world);
        ExpectNothingDone(world, step.message);
    }
}

TEST(InstallationPreparation, AllowsNoInstanceOfTheApplication) {
    InstallationWorld world;
    const StandInProcess instance = StartWaiting(world.applicationPath);
    EXPECT_THAT([&] { InstallUpdate(world.installation); },
                RaisesError("Another application instance is running; close it first"));
    EXPECT_EQ(world.actions, std::vector<std::string>{"list processes"});
}

TEST(InstallationPreparation, NeedsTheVersionOfTheInstalledExecutable) {
    InstallationWorld world;
    WriteFileContent(world.applicationPath, "no executable");
    ExpectNothingDone(world, "Cannot read installed executable version");
}

TEST(InstallationPreparation, RaisesWhenAFileCannotBeBackedUp) {
    InstallationWorld world;
    const std::filesystem::path library = world.installation.installDirectory / L"data" / L"app.so";
    const UniqueHandle held = HoldFile(library);
    EXPECT_THAT([&] { InstallUpdate(world.installation); }, RaisesFileSystemError("copy_file"));
    EXPECT_TRUE(world.status.records.empty());
}

}  // namespace
}  // namespace updater
