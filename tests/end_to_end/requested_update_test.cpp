// Updates that the application itself finds on a server, downloads and starts, from its own window.

#include <gmock/gmock.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "controls.h"
#include "end_to_end/build_outputs.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/update_request.h"
#include "end_to_end/waiting.h"
#include "end_to_end/window_text.h"
#include "fixtures/application_names.h"
#include "support/file_system.h"
#include "support/process_utilities.h"

namespace updater {

namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr char kCancelled[] = "Cancelled; nothing was changed";
constexpr char kNotTrusted[] =
    "What the update server offers cannot be trusted; nothing was changed\n";

// A download that stops behind a mebibyte goes on at the end of the last portion that was complete,
// at 10... bytes.
constexpr char kLastPortion[] = "10";

struct RequestedUpdate : UpdateTest {
    void Publish(const wchar_t* setupName, const std::wstring& query = L"") {
        PublishRelease(publisher, setupName, L"v2", query);
    }

    void Request() { RequestUpdate(*this, publisher, "2.0.0.0"); }

    void StartDownload() {
        StartWithFeed(*this, publisher);
        AwaitUpdateStatus(application, "Version 2.0.0.0 is available (");
        PressButton(application, ID_DOWNLOAD);
    }

    // Starts a download whose first try will never be done: behind a mebibyte the server sends ten
    // bytes a second.
    void StartSlowDownload() {
        Publish(L"v2", L"?drip=1048576&times=1");
        StartDownload();
        AwaitUpdateStatus(application, "Version 2.0.0.0 is being downloaded: 1.0 MB of ");
        constexpr double kPercentOfMegabyte = 1e8;
        EXPECT_NEAR(ShownProgress(application),
                    kPercentOfMegabyte / static_cast<double>(FileSize(SetupProgram(L"v2"))), 2);
    }

    // One line for each download that was begun: the range that was asked for.
    [[nodiscard]] std::vector<std::string> Downloads() const {
        return publisher.servers.Requests(kUnruly);
    }

    void ExpectDownloadThatWentOnAt(const std::string& position) const {
        const std::vector<std::string> downloads = Downloads();
        ASSERT_EQ(downloads.size(), 2U);
        EXPECT_THAT(downloads[0], HasSubstr(" 200 \"\" "));
        EXPECT_THAT(downloads[1], HasSubstr(" 206 \"bytes=" + position));
    }

    [[nodiscard]] std::string OutcomeToldBy(const Application& run) const {
        const std::optional<Session> session = FindSession(job.installDirectory, run);
        return session ? session->updateOutcome : "no line in the log";
    }

    // It is told once, at the restart.
    void ExpectOutcome(const std::string& outcome) const {
        const Application restarted = AwaitApplication(job.installDirectory);
        EXPECT_EQ(GreetingText(restarted), outcome);
        EXPECT_EQ(OutcomeToldBy(restarted), outcome);
        EXPECT_EQ(CloseApplication(restarted), 0U);
        ExpectNoOutcome();
    }

    void ExpectNoOutcome() const {
        const FeedVariables feed(publisher);
        const Application again = StartApplication(job.installDirectory);
        EXPECT_THAT(GreetingText(again), StartsWith("Welcome to " IDENTITY_LOCAL_DIRECTORY " "));
        EXPECT_EQ(OutcomeToldBy(again), "");
        EXPECT_EQ(CloseApplication(again), 0U);
    }

    ScopedVariable userData{L"LOCALAPPDATA", InWorkspace(L"本地 数据").native()};
    Publisher publisher;
};

TEST_F(RequestedUpdate, EndsWithTheNewVersionTellingItsUserThoughTheDownloadBroke) {
    Publish(L"v2", L"?cut=1000000&times=1");
    Request();
    ExpectDownloadThatWentOnAt("1000000-");
    AnswerPrompt();

    EXPECT_EQ(AwaitBroker(), 0U);
    ExpectVersion2(*this);
    ExpectOutcome("Updated to 2.0.0.0");
}

TEST_F(RequestedUpdate, EndsWithThePreviousVersionTellingItsUserWhatFailed) {
    Publish(L"v2-empty-inventory");
    Request();
    AnswerPrompt();

    constexpr char kWhatFailed[] =
        "Installed program inventory is empty; previous program restored";
    ExpectErrorBox(*this, RecordText("failed", kWhatFailed, 1));
    ExpectOutcome(std::string("The update failed and the previous program is in place: ") +
                  kWhatFailed);
    ExpectNothingChanged(*this);
}

TEST_F(RequestedUpdate, LeavesTheApplicationOpenWhenItsUserCancelsDuringThePrompt) {
    Publish(L"v2");
    Request();
    PressButton(application, ID_CANCEL_UPDATE);
    AwaitCondition("the cancel marker", [&] { return PathExists(job.jobDirectory / L"cancel"); });
    AnswerPrompt();
    AwaitWorker();

    EXPECT_EQ(AwaitBroker(), 2U);
    AwaitUpdateStatus(application, kCancelled);
    ExpectNothingChanged(*this);
    CloseApplication(application);
    // By itself it would wait its three minutes.
    TerminateProcess(worker.get(), 1);
    AwaitEnd(worker.get(), "the worker's end");
    ExpectNoOutcome();
}

TEST_F(RequestedUpdate, KeepsTheApplicationOpenUntilItIsReady) {
    Publish(L"v2");
    Request();
    grantsRights = true;
    holdsBroker = true;
    AwaitRecord("authorized");
    // An application that takes this record for the last one is gone long before.
    constexpr DWORD kLongEnough = 2000;
    EXPECT_FALSE(IsSignalledWithin(application.process.get(), kLongEnough));
    holdsBroker = false;
    brokerPause.reset();

    EXPECT_EQ(AwaitBroker(), 0U);
    EXPECT_EQ(AwaitEnd(application.process.get(), "the application's end"), 0U);
    ExpectOutcome("Updated to 2.0.0.0");
}

// The updater refuses an update whose application has ended.
TEST_F(RequestedUpdate, GoesOnWhenItsUserClosesTheWindowDuringThePrompt) {
    Publish(L"v2");
    Request();
    AskToClose(application);
    AwaitCondition("the window to close", [&] { return ListWindows(application.id).empty(); });
    AnswerPrompt();

    EXPECT_EQ(AwaitBroker(), 0U);
    ExpectVersion2(*this);
    ExpectOutcome("Updated to 2.0.0.0");
}

TEST_F(RequestedUpdate, GoesOnWithADownloadThatItsUserCancelled) {
    StartSlowDownload();
    PressButton(application, ID_CANCEL_UPDATE);
    AwaitUpdateStatus(application, kCancelled);
    publisher.servers.EndDripping();
    PressButton(application, ID_DOWNLOAD);
    AwaitUpdateStatus(application, "Version 2.0.0.0 is ready to install");
    ExpectDownloadThatWentOnAt(kLastPortion);
    CloseApplication(application);
}

TEST_F(RequestedUpdate, GoesOnWithADownloadAtTheNextStart) {
    StartSlowDownload();
    AskToClose(application);
    AwaitCondition("the window to close", [&] { return ListWindows(application.id).empty(); });
    publisher.servers.EndDripping();
    EXPECT_EQ(AwaitEnd(application.process.get(), "the application to close"), 0U);
    StartWithFeed(*this, publisher);
    DownloadOffered(*this, "2.0.0.0");
    ExpectDownloadThatWentOnAt(kLastPortion);
    CloseApplication(application);
}

TEST_F(RequestedUpdate, RefusesAFeedThatSomebodyHasChanged) {
    Publish(L"v2");
    TamperWithFeed(publisher);
    StartWithFeed(*this, publisher);
    AwaitUpdateStatus(application, kNotTrusted);
    EXPECT_THAT(UpdateStatusText(application), HasSubstr("signature"));
    // There is nothing that could be downloaded, whatever is pressed; the next check says the same.
    SendCommand(application, ID_DOWNLOAD);
    SendCommand(application, ID_UPDATE);
    PressButton(application, ID_CHECK);
    AwaitCondition("the second request",
                   [&] { return publisher.servers.Requests(kNginx).size() == 2; });
    AwaitUpdateStatus(application, kNotTrusted);
    EXPECT_EQ(Downloads(), std::vector<std::string>());
    CloseApplication(application);
}

TEST_F(RequestedUpdate, RefusesASetupProgramThatSomebodyHasChanged) {
    Publish(L"v2", L"?wrong=1000000");
    StartDownload();
    AwaitUpdateStatus(application, kNotTrusted);
    SendCommand(application, ID_UPDATE);
    CloseApplication(application);
    ExpectNothingChanged(*this);
}

TEST_F(RequestedUpdate, SaysSoWhenThereIsNothingNewAndTidiesUp) {
    const std::filesystem::path earlier = InWorkspace(L"本地 数据") / L"" IDENTITY_LOCAL_DIRECTORY /
                                          L"updates" / L"{3D0A6C1E-52B7-4C7E-9A40-1F6B8E2D7C55}";
    CreateDirectories(earlier);
    PublishRelease(publisher, L"v1", L"v1");
    StartWithFeed(*this, publisher);
    AwaitUpdateStatus(application, "The application is up to date");
    EXPECT_FALSE(PathExists(earlier));
    EXPECT_EQ(CloseApplication(application), 0U);
}

TEST_F(RequestedUpdate, SaysSoWhenTheServerCannotBeReached) {
    publisher.servers.Stop();
    StartWithFeed(*this, publisher);
    AwaitUpdateStatus(application, "The update server cannot be reached; please try again later\n");
    EXPECT_EQ(CloseApplication(application), 0U);
}

TEST_F(RequestedUpdate, IsNotOfferedWithoutAFeed) {
    application = StartApplication(job.installDirectory);
    EXPECT_EQ(UpdateStatusText(application), "This copy is not told where to look for updates");
    EXPECT_EQ(OutcomeToldBy(application), "");
    CloseApplication(application);
}

}  // namespace

}  // namespace updater
