#include <gtest/gtest.h>

#include <algorithm>

#include "end_to_end/build_outputs.h"
#include "end_to_end/update_expectations.h"
#include "fixtures/file_content.h"
#include "support/file_system.h"
#include "worker/staging.h"

namespace updater {

namespace {

struct SuccessfulUpdate : UpdateTest {
    void CompleteUpdate() {
        BeginUpdate();
        EndUpdate();
    }

    void EndUpdate() const {
        CloseApplication(application);
        EXPECT_EQ(AwaitBroker(run), 0U);
    }

    void ExpectVersion2() const {
        EXPECT_EQ(FindInventoryDifferences(job.installDirectory), std::vector<std::string>());
        EXPECT_EQ(FindDifferences(UserData(), ReadUserData(job.installDirectory)),
                  std::vector<std::string>());
        EXPECT_EQ(RegisteredVersion(), L"2.0.0.0");
        EXPECT_EQ(LastRecordText(job.jobDirectory),
                  RecordText("succeeded", "Installed version 2.0.0.0", 0));
    }
};

TEST_F(SuccessfulUpdate, ReplacesAnInstallationMadeByItsSetupProgram) {
    job.installDirectory = InWorkspace(L"真实 安装");
    RunSetup(SetupProgram(L"v1"), job.installDirectory);
    AddUserData(job.installDirectory);

    CompleteUpdate();

    ExpectVersion2();
    ExpectRestart(job.installDirectory, "2.0.0.0");
}

TEST_F(SuccessfulUpdate, ReplacesReadOnlyFiles) {
    for (const wchar_t* file : {L"corvellan.exe", L"engine.dll", L"program-files.tsv"}) {
        SetFileAttributesW((job.installDirectory / file).c_str(), FILE_ATTRIBUTE_READONLY);
    }

    CompleteUpdate();

    ExpectVersion2();
    ExpectRestart(job.installDirectory, "2.0.0.0");
}

TEST_F(SuccessfulUpdate, ReportsEachStepInItsOrder) {
    AskForUpdate();
    AnswerPromptStepByStep(run);
    EndUpdate();

    const std::vector<CollectedRecord> records = run.records->Records();
    std::vector<std::string> texts(records.size());
    std::ranges::transform(records, texts.begin(), &CollectedRecord::text);
    EXPECT_EQ(texts,
              (std::vector<std::string>{
                  RecordText("authorized", "Administrator authorization accepted", 0),
                  RecordText("ready", "Authorized helper is waiting for application exit", 0),
                  RecordText("installing", "Installing verified package", 0),
                  RecordText("succeeded", "Installed version 2.0.0.0", 0)}));
}

TEST_F(SuccessfulUpdate, LeavesTheSetupProgramTheBackupAndTheLogInTheStagingDirectory) {
    CompleteUpdate();

    const std::vector<std::filesystem::path> staging = NewStagingDirectories();
    ASSERT_EQ(staging.size(), 1U);
    EXPECT_EQ(FindDifferences(programBefore, ReadProgramFiles(staging[0] / L"backup")),
              std::vector<std::string>());
    EXPECT_EQ(FileSize(staging[0] / L"installer.exe"), FileSize(job.setup));
    EXPECT_GT(FileSize(staging[0] / L"install.log"), 0U);
}

TEST_F(SuccessfulUpdate, LeavesNoStagingDirectoryOfAnEarlierUpdate) {
    const std::filesystem::path earlier = CreateStagingDirectory();
    const std::filesystem::path backup = earlier / L"backup" / L"data" / L"文件";
    WriteFileContent(backup, "of an earlier update");
    SetFileAttributesW(backup.c_str(), FILE_ATTRIBUTE_READONLY);
    const std::filesystem::path similar = MachineDataFolder() / L"CorvellanUpdate-similar";
    CreateDirectories(similar);

    CompleteUpdate();

    ExpectVersion2();
    EXPECT_FALSE(PathExists(earlier));
    EXPECT_TRUE(PathExists(similar));
    RemoveTree(similar);
}

}  // namespace

}  // namespace updater
