#include "worker/installation.h"

#include <gtest/gtest.h>

#include "fixtures/application_names.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/processes/expected_records.h"
#include "fixtures/processes/failing_steps.h"
#include "fixtures/processes/stand_in_process.h"
#include "fixtures/raised_errors.h"
#include "fixtures/scenes/installation_scene.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/text_conversion.h"

namespace updater {
namespace {

StatusRecord RolledBack(const std::string& failure) {
    return {"failed", failure + "; previous program restored", 1};
}

TEST(Installation, InstallsTheNewVersionAndKeepsTheUsersFiles) {
    InstallationScene scene;
    const auto packaged = ReadTreeContent(scene.package);
    EXPECT_EQ(InstallUpdate(scene.installation), 0);
    EXPECT_EQ(
        scene.status.records,
        (std::vector<StatusRecord>{kInstalling, {"succeeded", "Installed version 2.0.0.0", 0}}));
    EXPECT_EQ(ReadStatusRecord(scene.installation.jobDirectory), scene.status.records.back());
    auto expected = packaged;
    expected[L"account.db"] = "the user's";
    EXPECT_EQ(ReadTreeContent(scene.installation.installDirectory), expected);
    EXPECT_EQ(RegisteredVersion(), L"2.0");
}

TEST(Installation, TakesItsStepsInTheirOrder) {
    InstallationScene scene;
    InstallUpdate(scene.installation);
    EXPECT_EQ(scene.actions,
              (std::vector<std::string>{"list processes", "read version", "read registered version",
                                        "back up", "flush the volume", "write installing",
                                        "start setup", "read version", "write succeeded"}));
}

TEST(Installation, LeavesSetupProgramBackupAndLogInTheStagingDirectory) {
    for (const char* exitCode : {"0", "1"}) {
        InstallationScene scene;
        auto previous = ReadTreeContent(scene.installation.installDirectory);
        previous.erase(L"account.db");
        scene.LetSetupEndWith(exitCode);
        InstallUpdate(scene.installation);
        const std::filesystem::path& staging = scene.installation.stagingDirectory;
        EXPECT_EQ(ReadTreeContent(staging / L"backup"), previous);
        EXPECT_TRUE(PathExists(staging / L"installer.exe"));
        EXPECT_TRUE(PathExists(staging / L"install.log"));
    }
}

TEST(Installation, ReadsTheRegisteredVersionOfThe64BitView) {
    InstallationScene scene;
    InstallUpdate(scene.installation);
    ASSERT_EQ(scene.registryQueries.size(), 1U);
    const RegistryQuery& query = scene.registryQueries.front();
    EXPECT_EQ(query.root, HKEY_LOCAL_MACHINE);
    EXPECT_EQ(query.key,
              LR"(SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\)"
              IDENTITY_APPLICATION_ID LR"(_is1)");
    EXPECT_EQ(query.value, L"DisplayVersion");
    EXPECT_EQ(query.flags, 0x10002U);
    EXPECT_FALSE(query.asksForType);
    EXPECT_TRUE(query.bufferIsZero);
    EXPECT_EQ(query.bytes, 1024U);
}

TEST(SetupProgram, IsTheStagedCopyWithExactlyItsSwitches) {
    InstallationScene scene;
    InstallUpdate(scene.installation);
    ASSERT_EQ(scene.processes.starts.size(), 1U);
    const ProcessStart& start = scene.processes.starts.front();
    EXPECT_EQ(start.application, scene.installation.setupProgram.native());
    EXPECT_EQ(start.commandLine, scene.ExpectedCommandLine());
    EXPECT_EQ(start.workingDirectory, scene.installation.stagingDirectory.native());
    ExpectPlainStart(start);
}

TEST(SetupProgram, ReceivesTheDirectoriesAsTheyAre) {
    InstallationScene scene;
    InstallUpdate(scene.installation);
    const std::wstring staging = scene.installation.stagingDirectory.native();
    EXPECT_EQ(Utf8ToWide(ReadFileContent(staging + L"\\install.log")),
              staging + L"\n" + scene.installation.setupProgram.native() +
                  L"\n/VERYSILENT\n/SUPPRESSMSGBOXES\n/NORESTART\n/SP-\n/NOCLOSEAPPLICATIONS\n"
                  L"/NOFORCECLOSEAPPLICATIONS\n/NORESTARTAPPLICATIONS\n/DIR=" +
                  scene.installation.installDirectory.native() + L"\n/LOG=" + staging +
                  L"\\install.log\n");
}

TEST(SetupProgram, GetsADirectoryWithABackslashAtItsEndQuoted) {
    InstallationScene scene;
    const std::wstring given = scene.installation.installDirectory.native() + L"\\";
    scene.installation.installDirectory = given;
    EXPECT_EQ(InstallUpdate(scene.installation), 0);
    EXPECT_NE(scene.processes.starts.at(0).commandLine.find(L" /DIR=\"" + given + L"\\\" /LOG="),
              std::wstring::npos);
    const std::string log = ReadFileContent(scene.installation.stagingDirectory / L"install.log");
    EXPECT_NE(log.find("/DIR=" + WideToUtf8(given) + "\n"), std::string::npos);
}

void EndSetupProgram(const InstallationScene& scene, UINT exitCode) {
    const UniqueHandle setup =
        OwnHandle(OpenProcess(PROCESS_TERMINATE, FALSE, scene.processes.starts.back().processId));
    TerminateProcess(setup.get(), exitCode);
    AwaitEndOfProcess(scene.processes.starts.back().processId);
}

TEST(SetupProgram, IsWaitedForWithoutALimit) {
    InstallationScene scene;
    scene.setupSteps = {"wait"};
    constexpr ULONGLONG kYear = 31'536'000'000;
    scene.time.After(kYear, [&] { EndSetupProgram(scene, 7); });
    EXPECT_EQ(InstallUpdate(scene.installation), 1);
    EXPECT_EQ(scene.time.WaitsForProcess(scene.processes.starts.at(0).processId),
              std::vector<DWORD>{INFINITE});
    EXPECT_EQ(scene.status.records.back(), RolledBack("Inno Setup did not complete; exit code=7"));
}

// A failure before "installing": nothing is changed, nothing is rolled back.
constexpr FailingStep<InstallationScene> kPreparationSteps[] = {
    {"Cannot enumerate running applications",
     [](InstallationScene& scene) { scene.faults.unreadableProcessLists = {1}; }},
    {"Cannot read installed executable version",
     [](InstallationScene& scene) { scene.faults.unreadableVersions = {1}; }},
    {"Program backup checksum mismatch",
     [](InstallationScene& scene) { scene.faults.backupCorrupted = true; }},
};

TEST(InstallationPreparation, FailsInItsOrder) {
    ExpectFailuresInOrder<InstallationScene>(kPreparationSteps, [](const InstallationScene& scene) {
        InstallUpdate(scene.installation);
    });
}

void ExpectNothingDone(InstallationScene& scene, const char* message) {
    const auto before = ReadTreeContent(scene.installation.installDirectory);
    EXPECT_THAT([&] { InstallUpdate(scene.installation); }, RaisesError(message));
    EXPECT_TRUE(scene.status.records.empty());
    EXPECT_TRUE(scene.processes.starts.empty());
    EXPECT_EQ(ReadTreeContent(scene.installation.installDirectory), before);
    EXPECT_EQ(RegisteredVersion(), L"1.0");
}

TEST(InstallationPreparation, ChangesNothingWhenItFails) {
    for (const FailingStep<InstallationScene>& step : kPreparationSteps) {
        SCOPED_TRACE(step.message);
        InstallationScene scene;
        step.breakStep(scene);
        ExpectNothingDone(scene, step.message);
    }
}

TEST(InstallationPreparation, AllowsNoInstanceOfTheApplication) {
    InstallationScene scene;
    const StandInProcess instance = StartWaiting(scene.applicationPath);
    EXPECT_THAT([&] { InstallUpdate(scene.installation); },
                RaisesError("Another application instance is running; close it first"));
    EXPECT_EQ(scene.actions, std::vector<std::string>{"list processes"});
}

TEST(InstallationPreparation, NeedsTheVersionOfTheInstalledExecutable) {
    InstallationScene scene;
    WriteFileContent(scene.applicationPath, "no executable");
    ExpectNothingDone(scene, "Cannot read installed executable version");
}

TEST(InstallationPreparation, RaisesWhenAFileCannotBeBackedUp) {
    InstallationScene scene;
    const std::filesystem::path library = scene.installation.installDirectory / L"data" / L"app.so";
    const UniqueHandle held = HoldFile(library);
    EXPECT_THAT([&] { InstallUpdate(scene.installation); }, RaisesFileSystemError("copy_file"));
    EXPECT_TRUE(scene.status.records.empty());
}

}  // namespace
}  // namespace updater
