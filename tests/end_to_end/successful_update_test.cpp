#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "end_to_end/build_outputs.h"
#include "end_to_end/update_expectations.h"
#include "fixtures/application_names.h"
#include "fixtures/file_content.h"
#include "support/application_identity.h"
#include "support/file_system.h"
#include "support/process_utilities.h"
#include "support/text_conversion.h"
#include "worker/staging.h"

namespace updater {

namespace {

struct SuccessfulUpdate : UpdateTest {
    void ExpectSuccess() {
        ExpectQuietEnd(*this, RecordText("succeeded", "Installed version 2.0.0.0", 0), 0);
        ExpectVersion2(*this);
    }
};

TEST_F(SuccessfulUpdate, ReplacesAnInstallationMadeByItsSetupProgram) {
    job.installDirectory = InWorkspace(L"真实 安装");
    RunSetup(SetupProgram(L"v1"), job.installDirectory);
    AddUserData(job.installDirectory);

    CarryOutUpdate();

    ExpectSuccess();
    ExpectRestart(job.installDirectory, "2.0.0.0");
}

TEST_F(SuccessfulUpdate, ReportsEachStepInItsOrder) {
    AskForUpdate();
    AnswerPromptStepByStep();
    CloseApplication(application);
    AwaitRecord("installing");
    NoteRecord();
    EXPECT_EQ(AwaitBroker(), 0U);
    NoteRecord();

    EXPECT_THAT(records,
                testing::ElementsAre(
                    StatusRecord{"authorized", "Administrator authorization accepted", 0},
                    StatusRecord{"ready", "Authorized helper is waiting for application exit", 0},
                    StatusRecord{"installing", "Installing verified package", 0},
                    StatusRecord{"succeeded", "Installed version 2.0.0.0", 0}));
    EXPECT_THAT(states, testing::ElementsAre("authorized", "ready", "installing", "succeeded"));
}

TEST_F(SuccessfulUpdate, LeavesTheSetupProgramTheBackupAndTheLogInTheStagingDirectory) {
    CarryOutUpdate();

    ExpectSuccess();
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
    const std::filesystem::path similar = MachineDataFolder() / IDENTITY_BASE_NAME L"-similar";
    CreateDirectories(similar);

    OfferSetup(L"v2-cleaning", L"2.0.0.0");
    CarryOutUpdate();

    ExpectSuccess();
    EXPECT_FALSE(PathExists(earlier));
    EXPECT_TRUE(PathExists(similar));
    EXPECT_EQ(NewStagingDirectories().size(), 2U);
    RemoveTree(similar);
}

TEST_F(SuccessfulUpdate, LeavesWhatOnlyHasTheNameOfAStagingDirectoryAndSaysSoInTheLog) {
    const std::filesystem::path planted =
        MachineDataFolder() / (kStagingPrefix + CreateJobIdentity());
    WriteFileContent(planted, "of another user");

    OfferSetup(L"v2-cleaning", L"2.0.0.0");
    CarryOutUpdate();

    ExpectSuccess();
    EXPECT_EQ(ReadFileContent(planted), "of another user");
    RemoveFile(planted);
    const std::vector<std::filesystem::path> staging = NewStagingDirectories();
    ASSERT_EQ(staging.size(), 1U);
    EXPECT_THAT(ReadFileContent(staging[0] / L"install.log"),
                testing::HasSubstr(WideToUtf8(planted.native()) + " is no directory"));
}

}  // namespace

}  // namespace updater
