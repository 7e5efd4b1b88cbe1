#include <thread>

#include "client/session/session_scene.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/patience.h"
#include "support/application_identity.h"
#include "support/file_system.h"
#include "support/text_conversion.h"

namespace updater {
namespace {

using StartedUpdate = SessionScene;

constexpr std::uint32_t kLong = kPatienceMilliseconds;
constexpr char kAuthorizedStep[] = "record\nauthorized\nAdministrator authorization accepted\n0";
constexpr char kReadyStep[] = "record\nready\nAuthorized helper is waiting for application exit\n0";

bool IsEmptyDirectory(const std::filesystem::path& directory) {
    return !PathExists(directory) || std::filesystem::is_empty(directory);
}

TEST_F(StartedUpdate, TellsTheUpdaterAllItNeedsAndRunsItFromTheJobDirectory) {
    StartUpdate();
    const std::filesystem::path job = JobDirectory();
    const std::string setupFile =
        WideToUtf8((dataDirectory / L"downloads" / (Utf8ToWide(feed.sha256) + L".exe")).native());
    EXPECT_EQ(ReadFileContent(job / L"started"),
              WideToUtf8(job.native()) + "\n--broker\n--install-dir\n" +
                  WideToUtf8(installDirectory.native()) + "\n--job-dir\n" +
                  WideToUtf8(job.native()) + "\n--parent-pid\n" +
                  std::to_string(GetCurrentProcessId()) + "\n--installer\n" + setupFile +
                  "\n--version\n2.0.0.0\n--size\n" + std::to_string(setup.size()) + "\n--sha256\n" +
                  feed.sha256 + "\n");
    EXPECT_TRUE(PathExists(job / kUpdaterExecutable));
    EXPECT_EQ(Sentence(), "The updater is started");
    EXPECT_EQ(ReadFileContent(dataDirectory / L"last-update.json"),
              "{\"job\":\"" + WideToUtf8(job.filename().native()) +
                  "\",\"version\":\"2.0.0.0\",\"told\":0}");
    EndUpdater(1);
}

TEST_F(StartedUpdate, LetsNobodyWriteToTheSetupProgramUntilTheSessionIsClosed) {
    StartUpdate();
    const auto openToWrite = [this] {
        constexpr DWORD kAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
        HoldFile(dataDirectory / L"downloads" / (Utf8ToWide(feed.sha256) + L".exe"), GENERIC_WRITE,
                 kAll);
    };
    EXPECT_THROW(openToWrite(), std::runtime_error);
    EndUpdater(1);
    EXPECT_EQ(Wait(kLong), APP_UPDATE_UPDATER_ENDED);
    EXPECT_THROW(openToWrite(), std::runtime_error);
    session.reset();
    EXPECT_NO_THROW(openToWrite());
}

TEST_F(StartedUpdate, GoesFromTheStartToReady) {
    StartUpdate();
    EXPECT_EQ(Wait(0), APP_UPDATE_NO_CHANGE);
    EXPECT_EQ(Sentence(), "The update has the same state as before");
    Step(kAuthorizedStep);
    ASSERT_EQ(Wait(kLong), APP_UPDATE_OK);
    EXPECT_EQ(state, APP_UPDATE_STATE_AUTHORIZED);
    EXPECT_EQ(Sentence(), "The update has a new state");
    EXPECT_EQ(Wait(1), APP_UPDATE_NO_CHANGE);
    Step(kReadyStep);
    ASSERT_EQ(Wait(kLong), APP_UPDATE_OK);
    EXPECT_EQ(state, APP_UPDATE_STATE_READY);
    EXPECT_EQ(Wait(600), APP_UPDATE_NO_CHANGE);
    EndUpdater(0);
}

TEST_F(StartedUpdate, NeverGoesBackToAnEarlierState) {
    StartUpdate();
    Step(kReadyStep);
    ASSERT_EQ(Wait(kLong), APP_UPDATE_OK);
    EXPECT_EQ(state, APP_UPDATE_STATE_READY);
    Step(kAuthorizedStep);
    EXPECT_EQ(Wait(600), APP_UPDATE_NO_CHANGE);
    EXPECT_EQ(state, APP_UPDATE_STATE_READY);
    EndUpdater(0);
}

TEST_F(StartedUpdate, TakesWhatIsNoRecordForNone) {
    StartUpdate();
    for (const char* text : {"{", "[]", "{\"state\":\"ready\"}", "{\"state\":1,\"message\":\"\"}",
                             "{\"state\":\"READY\",\"message\":\"\",\"exitCode\":0}"}) {
        Step(std::string("text\n") + text);
        EXPECT_EQ(Wait(600), APP_UPDATE_NO_CHANGE) << text;
    }
    EndUpdater(0);
    EXPECT_EQ(Wait(kLong), APP_UPDATE_UPDATER_ENDED);
}

struct EndCase {
    const char* record;
    AppUpdateResult result;
    std::string sentence;
};

TEST_F(StartedUpdate, EndsAsTheRecordSaysThatNothingHasBeenChanged) {
    OpenAndDownload();
    const std::string failed = "The update failed before anything was changed: ";
    for (const EndCase& end : {
             EndCase{"cancelled\nAdministrator authorization cancelled\n1223",
                     APP_UPDATE_PROMPT_DECLINED,
                     "The user did not grant administrator rights: Administrator authorization "
                     "cancelled"},
             EndCase{"cancelled\nApplication did not exit; update cancelled\n2",
                     APP_UPDATE_CANCELLED,
                     "The update was cancelled: Application did not exit; update cancelled"},
             EndCase{"failed\nAuthorization failed\n-5", APP_UPDATE_FAILED,
                     failed + "Authorization failed"},
             EndCase{"failed\nX; previous program restored\n1", APP_UPDATE_FAILED,
                     failed + "X; previous program restored"},
             EndCase{"ready\nAuthorized helper is waiting\n0", APP_UPDATE_UPDATER_ENDED,
                     "The updater ended without an outcome"},
             EndCase{"succeeded\nInstalled version 2.0.0.0\n0", APP_UPDATE_UPDATER_ENDED,
                     "The updater ended without an outcome"},
         }) {
        ASSERT_EQ(AppUpdateStart(session.get(), &report), APP_UPDATE_OK);
        Step(std::string("record\n") + end.record);
        EndUpdater(1);
        AppUpdateResult result = APP_UPDATE_OK;
        // "ready" may be seen before the updater's end is.
        do {
            result = Wait(kLong);
        } while (result == APP_UPDATE_OK);
        EXPECT_EQ(result, end.result) << end.record;
        EXPECT_EQ(Sentence(), end.sentence);
        EXPECT_EQ(TakeOutcome(), APP_UPDATE_NO_OUTCOME) << "It has been told";
        EXPECT_EQ(Wait(0), APP_UPDATE_WRONG_ORDER);
        EXPECT_EQ(Sentence(), "No update has been started");
    }
}

TEST_F(StartedUpdate, IsNotReadyWhenTheUpdaterHasEnded) {
    StartUpdate();
    Step(kReadyStep);
    EndUpdater(1);
    // Until the updater's process is gone, too.
    ASSERT_EQ(Wait(0), APP_UPDATE_NO_CHANGE) << "The record has not come to rest";
    AppUpdateResult result = Wait(kLong);
    EXPECT_EQ(result, APP_UPDATE_UPDATER_ENDED);
    EXPECT_EQ(state, APP_UPDATE_STATE_STARTED);
}

TEST_F(StartedUpdate, DoesNotBelieveAnOutcomeWhileTheUpdaterRuns) {
    StartUpdate();
    Step("record\nfailed\nNot by the updater\n1");
    EXPECT_EQ(Wait(600), APP_UPDATE_NO_CHANGE);
    Step(kReadyStep);
    EXPECT_EQ(Wait(kLong), APP_UPDATE_OK);
    EXPECT_EQ(state, APP_UPDATE_STATE_READY);
    EndUpdater(0);
}

TEST_F(StartedUpdate, IsNeverReadyAfterACancellation) {
    StartUpdate();
    AppUpdateCancel(session.get());
    EXPECT_TRUE(PathExists(JobDirectory() / L"cancel"));
    Step(kReadyStep);
    EXPECT_EQ(Wait(600), APP_UPDATE_NO_CHANGE);
    EXPECT_EQ(state, APP_UPDATE_STATE_STARTED);
    EndUpdater(2);
    EXPECT_EQ(Wait(kLong), APP_UPDATE_CANCELLED);
    EXPECT_EQ(Sentence(), "The update was cancelled by the application");
    EXPECT_EQ(AppUpdateStart(session.get(), &report), APP_UPDATE_OK)
        << "The cancellation was for the other update";
    EndUpdater(0);
}

TEST_F(StartedUpdate, IsCancelledFromAnotherThreadWhileItIsWaitedFor) {
    StartUpdate();
    std::jthread other([this] {
        AppUpdateCancel(session.get());
        while (!PathExists(JobDirectory() / L"cancel")) {
            std::this_thread::yield();
        }
        EndUpdater(2);
    });
    EXPECT_EQ(Wait(INFINITE), APP_UPDATE_CANCELLED);
}

TEST_F(StartedUpdate, IsNotStartedAfterACancellation) {
    OpenAndDownload();
    AppUpdateCancel(session.get());
    EXPECT_EQ(AppUpdateStart(session.get(), &report), APP_UPDATE_CANCELLED);
    EXPECT_TRUE(IsEmptyDirectory(dataDirectory / L"updates"));
    EXPECT_FALSE(PathExists(dataDirectory / L"last-update.json"));
}

TEST_F(StartedUpdate, NeedsADownloadOfWhatIsOfferedNow) {
    Publish(feed);
    Open();
    EXPECT_EQ(AppUpdateStart(session.get(), &report), APP_UPDATE_WRONG_ORDER);
    EXPECT_EQ(Sentence(), "No check has found an offer");
    ASSERT_EQ(Check(), APP_UPDATE_OK);
    EXPECT_EQ(AppUpdateStart(session.get(), &report), APP_UPDATE_WRONG_ORDER);
    EXPECT_EQ(Sentence(), "The offer has not been downloaded");
    ASSERT_EQ(AppUpdateDownload(session.get(), nullptr, nullptr, &report), APP_UPDATE_OK);
    feed.issue = 8;
    feed.sha256.back() = feed.sha256.back() == '0' ? '1' : '0';
    TheServer().fetch = [envelope = key.Envelope(WriteFeed(feed))](const HttpsRequest&,
                                                                   const HttpsReceiver& receiver) {
        Answer200(receiver, "\"second\"", envelope);
    };
    ASSERT_EQ(Check(), APP_UPDATE_OK);
    EXPECT_EQ(AppUpdateStart(session.get(), &report), APP_UPDATE_WRONG_ORDER);
}

TEST_F(StartedUpdate, IsTheOnlyOne) {
    StartUpdate();
    EXPECT_EQ(AppUpdateStart(session.get(), &report), APP_UPDATE_WRONG_ORDER);
    EXPECT_EQ(Sentence(), "An update has been started already");
    EndUpdater(0);
}

TEST_F(StartedUpdate, NeedsAnUpdater) {
    OpenAndDownload();
    RemoveFile(installDirectory / kUpdaterExecutable);
    EXPECT_EQ(AppUpdateStart(session.get(), &report), APP_UPDATE_UPDATER_MISSING);
    EXPECT_EQ(Sentence(), "There is no updater " +
                              WideToUtf8((installDirectory / kUpdaterExecutable).native()));
    EXPECT_TRUE(IsEmptyDirectory(dataDirectory / L"updates"));
}

TEST_F(StartedUpdate, DoesNotStartWhatIsNoProgram) {
    OpenAndDownload();
    WriteFileContent(installDirectory / kUpdaterExecutable, "no program");
    EXPECT_EQ(AppUpdateStart(session.get(), &report), APP_UPDATE_UPDATER_NOT_STARTED);
    EXPECT_EQ(report.systemError, static_cast<std::uint32_t>(ERROR_BAD_EXE_FORMAT));
    EXPECT_TRUE(IsEmptyDirectory(dataDirectory / L"updates"));
    EXPECT_EQ(TakeOutcome(), APP_UPDATE_NO_OUTCOME) << "The failure has been told";
}

TEST_F(StartedUpdate, LeavesTheSetupProgramHeldUntilTheSessionIsClosed) {
    OpenAndDownload();
    const std::filesystem::path file =
        dataDirectory / L"downloads" / (Utf8ToWide(feed.sha256) + L".exe");
    const auto write = [&file] {
        return OwnHandle(CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                     OPEN_EXISTING, 0, nullptr));
    };
    EXPECT_EQ(write(), nullptr);
    ASSERT_EQ(Check(), APP_UPDATE_OK);
    EXPECT_EQ(write(), nullptr);
    session.reset();
    EXPECT_NE(write(), nullptr);
}

struct Progress {
    std::uint64_t done = 0;
    std::uint64_t total = 0;
    int calls = 0;
};

void __cdecl TakeProgress(void* context, std::uint64_t done, std::uint64_t total) {
    auto& progress = *static_cast<Progress*>(context);
    progress = {done, total, progress.calls + 1};
}

TEST_F(StartedUpdate, IsDownloadedOnce) {
    Publish(feed);
    Open();
    ASSERT_EQ(Check(), APP_UPDATE_OK);
    Progress progress;
    EXPECT_EQ(AppUpdateDownload(session.get(), &TakeProgress, &progress, &report), APP_UPDATE_OK);
    EXPECT_EQ(Sentence(), "The setup program is downloaded and verified");
    TheServer().download = nullptr;
    EXPECT_EQ(AppUpdateDownload(session.get(), &TakeProgress, &progress, &report), APP_UPDATE_OK);
    EXPECT_EQ(progress.calls, 2);
    EXPECT_EQ(progress.done, setup.size());
    EXPECT_EQ(progress.total, setup.size());
}

TEST_F(StartedUpdate, IsDownloadedFromTheAddressThatIsRelativeToTheFeed) {
    Publish(feed);
    settings.firstPause = 77;
    Open();
    ASSERT_EQ(Check(), APP_UPDATE_OK);
    DownloadOrder asked;
    TheServer().download = [&asked](const DownloadOrder& order, const Cancellation&,
                                    const DownloadProgress&) -> DownloadedSetup {
        asked = order;
        throw std::bad_alloc();
    };
    EXPECT_EQ(AppUpdateDownload(session.get(), nullptr, nullptr, &report),
              APP_UPDATE_OUT_OF_MEMORY);
    EXPECT_EQ(Sentence(), "Out of memory");
    EXPECT_EQ(asked.address, L"https://example.com/app/setup-2.exe");
    EXPECT_EQ(asked.size, setup.size());
    EXPECT_EQ(asked.sha256, feed.sha256);
    EXPECT_EQ(asked.directory, dataDirectory / L"downloads");
    EXPECT_EQ(asked.firstPause, 77U);
    EXPECT_EQ(AppUpdateStart(session.get(), &report), APP_UPDATE_WRONG_ORDER);
}

}  // namespace
}  // namespace updater
