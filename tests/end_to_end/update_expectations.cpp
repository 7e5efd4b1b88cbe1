#include "end_to_end/update_expectations.h"

#include <optional>
#include <vector>

#include "elevation/consent.h"
#include "end_to_end/application.h"
#include "end_to_end/build_outputs.h"
#include "end_to_end/error_box.h"
#include "end_to_end/installed_program.h"
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

void ExpectQuietEnd(WholeUpdate& update, const std::string& recordText, std::uint32_t exitCode) {
    EXPECT_EQ(update.AwaitBroker(), exitCode);
    EXPECT_EQ(LastRecordText(update.job.jobDirectory), recordText);
}

void ExpectErrorBox(WholeUpdate& update, const std::string& recordText, std::uint32_t exitCode) {
    const MessageWindow box = AwaitErrorBox(update);
    EXPECT_EQ(box.title, ErrorBoxTitle());
    EXPECT_EQ(WideToUtf8(box.text), WideToUtf8(ErrorBoxHeading()) + recordText + "\n\n" +
                                        WideToUtf8(update.job.jobDirectory.native()));
    CloseMessageBox(box);
    EXPECT_EQ(update.AwaitBroker(), exitCode);
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

void ExpectVersion2(const UpdateScene& scene) {
    const std::filesystem::path& directory = scene.job.installDirectory;
    EXPECT_EQ(FindInventoryDifferences(directory), std::vector<std::string>());
    EXPECT_EQ(FindDifferences(UserData(), ReadUserData(directory)), std::vector<std::string>());
    EXPECT_EQ(RegisteredVersion(), L"2.0.0.0");
}

void ExpectNothingChanged(const UpdateScene& scene) {
    const std::filesystem::path& directory = scene.job.installDirectory;
    EXPECT_EQ(FindDifferences(scene.programBefore, ReadProgramFiles(directory)),
              std::vector<std::string>());
    EXPECT_EQ(FindDifferences(UserData(), ReadUserData(directory)), std::vector<std::string>());
    EXPECT_EQ(RegisteredVersion(), L"1.0.0.0");
}

}  // namespace updater
