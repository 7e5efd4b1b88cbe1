#include "end_to_end/update_expectations.h"

#include <optional>
#include <vector>

#include "elevation/consent.h"
#include "end_to_end/application.h"
#include "end_to_end/error_box.h"
#include "end_to_end/installed_program.h"
#include "fixtures/updater_box.h"
#include "support/file_digest.h"
#include "support/file_system.h"
#include "support/text_conversion.h"

namespace updater {

void UpdateTest::TearDown() {
    const std::filesystem::path updater = job.updater.native() + kRealSuffix;
    if (PathExists(updater)) {
        RecordProperty("UpdaterSha256", FileSha256Hex(updater));
    }
}

std::string RecordText(const std::string& state, const std::string& message, int exitCode) {
    return R"({"state":")" + state + R"(","message":")" + message + R"(","exitCode":)" +
           std::to_string(exitCode) + "}";
}

std::string LastRecordText(const std::filesystem::path& jobDirectory) {
    const std::optional<CollectedRecord> record = FindStatusRecord(jobDirectory);
    return record ? record->text : std::string();
}

void ExpectQuietEnd(const UpdateRun& run, const std::filesystem::path& jobDirectory,
                    const std::string& recordText, std::uint32_t exitCode) {
    EXPECT_EQ(AwaitBroker(run), exitCode);
    EXPECT_EQ(LastRecordText(jobDirectory), recordText);
}

void ExpectErrorBox(const UpdateRun& run, const std::filesystem::path& jobDirectory,
                    const std::string& recordText, std::uint32_t exitCode) {
    const MessageWindow box = AwaitMessageBox(run.brokerId);
    EXPECT_EQ(box.title, kUpdaterBoxTitle);
    EXPECT_EQ(WideToUtf8(box.text), WideToUtf8(kUpdaterBoxHeading) + recordText + "\n\n" +
                                        WideToUtf8(jobDirectory.native()));
    CloseMessageBox(box);
    EXPECT_EQ(AwaitBroker(run), exitCode);
}

void ExpectRestart(const std::filesystem::path& installDirectory, const std::string& version) {
    const Application restarted = AwaitApplication(installDirectory);
    EXPECT_FALSE(IsElevated(restarted.process.get()));
    const std::optional<Session> session = FindSession(installDirectory, restarted);
    ASSERT_TRUE(session);
    EXPECT_EQ(session->version, version);
    EXPECT_FALSE(session->elevated);
    EXPECT_EQ(session->workingDirectory, installDirectory);
    CloseApplication(restarted);
}

void ExpectNothingChanged(const UpdateScene& scene) {
    const std::filesystem::path& directory = scene.job.installDirectory;
    EXPECT_EQ(FindDifferences(scene.programBefore, ReadProgramFiles(directory)),
              std::vector<std::string>());
    EXPECT_EQ(FindDifferences(UserData(), ReadUserData(directory)), std::vector<std::string>());
    EXPECT_EQ(RegisteredVersion(), L"1.0.0.0");
}

}  // namespace updater
