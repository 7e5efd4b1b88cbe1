#include "client/last_update.h"
#include "client/session/session_scene.h"
#include "fixtures/file_content.h"
#include "fixtures/install_mutex.h"
#include "fixtures/programs/running_program.h"
#include "support/application_identity.h"
#include "support/file_system.h"
#include "support/status_file.h"
#include "support/text_conversion.h"

namespace updater {
namespace {

constexpr wchar_t kJob[] = L"{01234567-89AB-CDEF-0123-456789ABCDEF}";

struct TakenOutcome : SessionScene {
    TakenOutcome() {
        CreateDirectories(job);
        WriteLastUpdate(dataDirectory, {kJob, {{2, 0, 0, 0}}, false});
    }

    std::filesystem::path job = dataDirectory / L"updates" / kJob;
};

struct OutcomeCase {
    const char* state;
    std::string message;
    int exitCode;
    AppUpdateResult result;
    std::string sentence;
};

TEST_F(TakenOutcome, IsWhatTheRecordSays) {
    Open();
    const std::string unknown =
        "The update failed, and whether the previous program is whole is not known: ";
    for (const OutcomeCase& end : {
             OutcomeCase{"succeeded", "Installed version 2.0.0.0", 0, APP_UPDATE_OK,
                         "The update succeeded: Installed version 2.0.0.0"},
             OutcomeCase{"failed", "X; previous program restored", 1, APP_UPDATE_FAILED_RESTORED,
                         "The update failed and the previous program is in place: X; previous "
                         "program restored"},
             OutcomeCase{"failed", "X; restore version mismatch", 1, APP_UPDATE_FAILED_NOT_RESTORED,
                         "The update failed and the previous program is not whole: X; restore "
                         "version mismatch"},
             OutcomeCase{"failed", "X; previous program restored; Y", 1,
                         APP_UPDATE_FAILED_NOT_RESTORED,
                         unknown + "X; previous program restored; Y"},
             OutcomeCase{"failed", "", 1, APP_UPDATE_FAILED_NOT_RESTORED,
                         "The update failed, and whether the previous program is whole is not "
                         "known"},
             OutcomeCase{"cancelled", "Administrator authorization cancelled", 1223,
                         APP_UPDATE_PROMPT_DECLINED,
                         "The user did not grant administrator rights: Administrator "
                         "authorization cancelled"},
             OutcomeCase{"cancelled", "Application remained open", 0, APP_UPDATE_CANCELLED,
                         "The update was cancelled: Application remained open"},
         }) {
        WriteUpdateStatus(job, end.state, end.message, end.exitCode);
        WriteLastUpdate(dataDirectory, {kJob, {{2, 0, 0, 0}}, false});
        EXPECT_EQ(TakeOutcome(), APP_UPDATE_OK);
        EXPECT_EQ(outcome.result, end.result) << end.message;
        EXPECT_EQ(Sentence(), end.sentence);
        EXPECT_EQ(WideToUtf8(outcome.message), end.message);
        EXPECT_STREQ(outcome.version, L"2.0.0.0");
        EXPECT_EQ(TakeOutcome(), APP_UPDATE_NO_OUTCOME) << "It is told once";
        EXPECT_EQ(Sentence(), "There is no outcome to be told");
    }
}

TEST_F(TakenOutcome, OfAnUpdateThatWasBrokenOff) {
    Open();
    WriteUpdateStatus(job, kStateInstalling, "Installing verified package", 0);
    EXPECT_EQ(TakeOutcome(), APP_UPDATE_OK);
    EXPECT_EQ(outcome.result, APP_UPDATE_UPDATER_ENDED);
    EXPECT_EQ(
        Sentence(),
        "The updater ended while it installed, and whether the program is whole is not known");
}

TEST_F(TakenOutcome, OfAnUpdateThatNeverSaidAnything) {
    Open();
    EXPECT_EQ(TakeOutcome(), APP_UPDATE_OK);
    EXPECT_EQ(outcome.result, APP_UPDATE_UPDATER_ENDED);
    EXPECT_EQ(Sentence(), "The updater ended without an outcome");
    EXPECT_STREQ(outcome.message, L"");
}

TEST_F(TakenOutcome, OfAnUpdateThatTheApplicationCancelled) {
    Open();
    WriteUpdateStatus(job, kStateReady, "", 0);
    WriteFileContent(job / L"cancel", "");
    EXPECT_EQ(TakeOutcome(), APP_UPDATE_OK);
    EXPECT_EQ(outcome.result, APP_UPDATE_CANCELLED);
}

TEST_F(TakenOutcome, WaitsUntilNothingIsBeingInstalled) {
    Open();
    WriteUpdateStatus(job, kStateInstalling, "", 0);
    EXPECT_EQ(AppUpdateIsBeingInstalled(), 0);
    {
        const UniqueHandle mutex = OwnHandle(CreateMutexW(nullptr, TRUE, kInstallMutexName));
        EXPECT_NE(AppUpdateIsBeingInstalled(), 0);
        EXPECT_EQ(TakeOutcome(), APP_UPDATE_NO_OUTCOME);
        WriteUpdateStatus(job, kStateSucceeded, "", 0);
        EXPECT_EQ(TakeOutcome(), APP_UPDATE_OK) << "The updater still shows something, perhaps";
    }
    EXPECT_EQ(TakeOutcome(), APP_UPDATE_NO_OUTCOME);
}

TEST_F(TakenOutcome, WaitsForTheUpdatersEnd) {
    Open();
    {
        const RunningProgram updater(job / kUpdaterExecutable);
        EXPECT_EQ(TakeOutcome(), APP_UPDATE_NO_OUTCOME);
    }
    EXPECT_EQ(TakeOutcome(), APP_UPDATE_OK);
}

TEST_F(TakenOutcome, IsCutAtAWholeCharacter) {
    Open();
    // A character of two UTF-16 units would stand across the end.
    WriteUpdateStatus(job, kStateSucceeded, std::string(1022, 'x') + "\U0001F600" + "y", 0);
    EXPECT_EQ(TakeOutcome(), APP_UPDATE_OK);
    EXPECT_EQ(std::wstring(outcome.message), std::wstring(1022, L'x'));
    EXPECT_EQ(std::wstring(report.sentence).size(), 511U);
}

TEST_F(TakenOutcome, IsFoundInARecordThatIsNotValidUtf8) {
    Open();
    WriteFileContent(job / kStatusFile,
                     "{\"state\":\"failed\",\"message\":\"\xB2\xBB; previous program restored\","
                     "\"exitCode\":1}");
    EXPECT_EQ(TakeOutcome(), APP_UPDATE_OK);
    EXPECT_EQ(outcome.result, APP_UPDATE_FAILED_RESTORED);
}

TEST_F(TakenOutcome, IsNoneWithoutAnUpdate) {
    Open();
    for (const char* damaged :
         {"", "{", "{\"job\":\"..\",\"version\":\"2.0.0.0\",\"told\":0}",
          R"({"job":"{01234567-89AB-CDEF-0123-456789ABCDEF}","version":"2","told":0})",
          R"({"job":"{01234567-89AB-CDEF-0123-456789ABCDEF}","version":"2.0.0.0"})",
          R"({"job":"{01234567-89ab-CDEF-0123-456789ABCDEF}","version":"2.0.0.0","told":0})",
          R"({"job":"{01234567-89AB-CDEF-0123-456789ABCDEF}x","version":"2.0.0.0","told":0})"}) {
        WriteFileContent(dataDirectory / L"last-update.json", damaged);
        EXPECT_EQ(TakeOutcome(), APP_UPDATE_NO_OUTCOME) << damaged;
    }
    RemoveFile(dataDirectory / L"last-update.json");
    EXPECT_EQ(TakeOutcome(), APP_UPDATE_NO_OUTCOME);
}

TEST_F(TakenOutcome, IsNoneWhileThisSessionsUpdateRuns) {
    StartUpdate();
    Step("record\nfailed\nX\n1");
    EXPECT_EQ(TakeOutcome(), APP_UPDATE_NO_OUTCOME);
    EndUpdater(1);
}

TEST_F(TakenOutcome, OfAnUpdateThatAClosedSessionStarted) {
    StartUpdate();
    Step("record\nfailed\nX\n1");
    EndUpdater(1);
    Open();
    EXPECT_EQ(TakeOutcome(), APP_UPDATE_OK);
    EXPECT_EQ(outcome.result, APP_UPDATE_FAILED_NOT_RESTORED)
        << "The application might have ended and come back";
}

}  // namespace
}  // namespace updater
