#include <gtest/gtest.h>

#include <chrono>

#include "elevation/consent.h"
#include "end_to_end/build_outputs.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
#include "fixtures/application_names.h"
#include "fixtures/file_content.h"
#include "fixtures/named_event.h"
#include "support/file_system.h"
#include "support/handshake.h"
#include "support/process_utilities.h"

namespace updater {

namespace {

std::string ReadyText() {
    return RecordText("ready", "Authorized helper is waiting for application exit", 0);
}

// Updates that end between the prompt and the installation.
struct InterruptedUpdate : UpdateTest {
    void ExpectEndAtThePrompt(const wchar_t* consent, const std::string& recordText) {
        job.consent = consent;
        AskForUpdate();
        AnswerPrompt();

        ExpectQuietEnd(*this, recordText, 1);
        ExpectApplicationLeftAlone();
    }

    void ExpectApplicationLeftAlone() const {
        EXPECT_FALSE(HasEnded(application.process.get()));
        ExpectNothingChanged(*this);
    }
};

enum class Marker { File, Directory };

struct CancelledUpdate : InterruptedUpdate, testing::WithParamInterface<Marker> {
    void PlaceMarker() const {
        const std::filesystem::path marker = job.jobDirectory / L"cancel";
        if (GetParam() == Marker::Directory) {
            CreateDirectories(marker);
        } else {
            WriteFileContent(marker, "");
        }
    }
};

TEST_P(CancelledUpdate, EndsTheBrokerWithoutARecordOfItsOwn) {
    BeginUpdate();
    PlaceMarker();

    ExpectQuietEnd(*this, ReadyText(), 2);
    ExpectApplicationLeftAlone();
    // It waits for a commit that will not come.
    EXPECT_FALSE(HasEnded(helper.get()));
}

TEST_P(CancelledUpdate, IsCancelledEvenIfTheApplicationHasAlsoExited) {
    // Both have happened before the broker looks for the first time: a real worker would not get
    // that far without the application.
    job.consent = kConsentHelperHangsReady;
    AskForUpdate();
    PlaceMarker();
    CloseApplication(application);
    SetEvent(answered.get());

    ExpectQuietEnd(*this, ReadyText(), 2);
    ExpectNothingChanged(*this);
    EXPECT_EQ(ListApplications(job.installDirectory), std::vector<std::uint32_t>());
}

INSTANTIATE_TEST_SUITE_P(Markers, CancelledUpdate, testing::Values(Marker::File, Marker::Directory),
                         [](const auto& suite) {
                             return suite.param == Marker::File ? "File" : "Directory";
                         });

TEST_F(InterruptedUpdate, ReportsAHelperThatEndsBeforeItIsReady) {
    ExpectEndAtThePrompt(kConsentHelperDies,
                         RecordText("failed", "Upgrade helper did not become ready", 1));
}

TEST_F(InterruptedUpdate, KeepsAnEarlierRecordWhenTheHelperEndsBeforeItIsReady) {
    const std::string earlier = RecordText("succeeded", "Installed version 1.0.0.0", 0);
    WriteFileContent(job.jobDirectory / L"status.json", earlier);

    ExpectEndAtThePrompt(kConsentHelperDies, earlier);
}

TEST_F(InterruptedUpdate, KeepsTheReportOfAWorkerThatWasNotElevated) {
    ExpectEndAtThePrompt(kConsentWithoutRights,
                         RecordText("failed", "Administrator authorization is required", 1));
}

TEST_F(InterruptedUpdate, EndsWithAWorkerThatDiesWhileTheApplicationIsOpen) {
    BeginUpdate();
    AwaitWorker();
    TerminateProcess(worker.get(), 7);

    ExpectQuietEnd(*this, ReadyText(), 1);
    ExpectApplicationLeftAlone();
}

TEST_F(InterruptedUpdate, StartsTheApplicationAgainWhenAnotherInstanceIsFoundOpen) {
    BeginUpdate();
    const Application second = StartApplicationAnyway(job.installDirectory);
    CloseApplication(application);

    ExpectErrorBox(
        *this, RecordText("failed", "Another application instance is running; close it first", 1));
    EXPECT_FALSE(HasEnded(second.process.get()));
    EXPECT_EQ(ListApplications(job.installDirectory).size(), 2U);
    ExpectNothingChanged(*this);
}

TEST_F(InterruptedUpdate, KeepsASecondUpdateFromInstallingAtTheSameTime) {
    WholeUpdate second(job);
    second.job.installDirectory = InWorkspace(L"第二个 安装");
    second.job.jobDirectory = InWorkspace(L"第二个 任务");
    second.job.updater = PlaceUpdater(InWorkspace(L"第二个 更新程序"));
    CreateDirectories(second.job.jobDirectory);
    CopyTree(job.installDirectory, second.job.installDirectory);
    second.application = StartApplication(second.job.installDirectory);
    BeginUpdate();

    second.StartBroker(UpdateOptions(second.job, second.application.id));
    second.AwaitPrompt();
    second.AnswerPrompt();

    ExpectQuietEnd(second, RecordText("failed", "Another update installation is running", 1), 1);
    EXPECT_FALSE(HasEnded(second.application.process.get()));
    CloseApplication(application);
    ExpectQuietEnd(*this, RecordText("succeeded", "Installed version 2.0.0.0", 0), 0);
}

// The broker commits only after the application's end, so here the test is the broker.
struct UpdateWithEarlyCommit : InterruptedUpdate {
    void StartWorker() {
        const std::wstring baseName = L"Local\\" IDENTITY_BASE_NAME L"-" + CreateJobIdentity();
        ready = CreateNamedEvent(ReadyEventName(baseName));
        commit = CreateNamedEvent(CommitEventName(baseName));
        application = StartApplication(job.installDirectory);
        UpdaterArguments options = Options();
        options[kEventOption] = baseName;
        worker = StartProgram({RealUpdater(), CommandLineOf(kWorkerFlag, options)}).process;
        AwaitCondition("the worker's readiness or end",
                       [&] { return IsSignalledWithin(ready.get(), 0) || HasEnded(worker.get()); });
    }
};

TEST_F(UpdateWithEarlyCommit, IsGivenUpTenSecondsLaterIfTheApplicationIsStillOpen) {
    StartWorker();
    EXPECT_EQ(NewStagingDirectories().size(), 1U);
    const auto committed = std::chrono::steady_clock::now();
    SetEvent(commit.get());

    EXPECT_EQ(AwaitEnd(worker.get(), "the worker's end"), 2U);

    // Later only because the machine has other things to do.
    EXPECT_GE(std::chrono::steady_clock::now() - committed, std::chrono::milliseconds(9900));
    EXPECT_EQ(LastRecordText(job.jobDirectory),
              RecordText("cancelled", "Application remained open; installation cancelled", 0));
    EXPECT_EQ(NewStagingDirectories(), std::vector<std::filesystem::path>());
    ExpectApplicationLeftAlone();
}

TEST_F(UpdateWithEarlyCommit, IsInstalledIfTheApplicationExitsInTime) {
    StartWorker();
    SetEvent(commit.get());
    CloseApplication(application);

    EXPECT_EQ(AwaitEnd(worker.get(), "the worker's end"), 0U);

    EXPECT_EQ(LastRecordText(job.jobDirectory),
              RecordText("succeeded", "Installed version 2.0.0.0", 0));
    EXPECT_EQ(FindInventoryDifferences(job.installDirectory), std::vector<std::string>());
}

}  // namespace

}  // namespace updater
