#include <gtest/gtest.h>

#include <ostream>

#include "end_to_end/build_outputs.h"
#include "end_to_end/error_box.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
#include "fixtures/file_content.h"
#include "support/file_system.h"
#include "support/process_utilities.h"

namespace updater {

namespace {

// Updates that end before anything is installed, because the request was wrong. The application
// stays open.
struct RefusedUpdate : UpdateTest {
    void ExpectRefusal(const UpdaterArguments& options, const std::string& message) {
        StartBroker(options);
        ExpectQuietEnd(*this, RecordText("failed", message, 1), 1);
        EXPECT_FALSE(WasAskedForRights());
    }

    void ExpectRefusalByWorker(const UpdaterArguments& options, const std::string& message) {
        StartBroker(options);
        AwaitPrompt();
        AnswerPrompt();
        ExpectQuietEnd(*this, RecordText("failed", message, 1), 1);
    }

    [[nodiscard]] bool WasAskedForRights() const { return IsSignalledWithin(asked.get(), 0); }

    void ExpectApplicationStillOpen() const {
        EXPECT_FALSE(HasEnded(application.process.get()));
        ExpectNothingChanged(*this);
    }
};

TEST_F(RefusedUpdate, IsNotBegunByAnElevatedApplication) {
    application = StartApplication(job.installDirectory, StartToken::Elevated);
    const StartedProgram refused =
        StartProgram({RealUpdater(), CommandLineOf(kBrokerFlag, Options())});

    EXPECT_EQ(AwaitEnd(refused.process.get(), "the broker's end"), 1U);
    EXPECT_EQ(
        LastRecordText(job.jobDirectory),
        RecordText("failed",
                   "Start the application without administrator privileges before updating", 1));
    ExpectApplicationStillOpen();
}

TEST_F(RefusedUpdate, NeedsAnApplicationThatRunsFromTheInstallationDirectory) {
    const std::filesystem::path elsewhere = InWorkspace(L"另一个 目录");
    CopyTree(job.installDirectory, elsewhere);
    application = StartApplication(elsewhere);

    ExpectRefusal(Options(), "Update parent does not match installation directory");

    ExpectApplicationStillOpen();
}

TEST_F(RefusedUpdate, NeedsAnApplicationThatStillRuns) {
    application = StartApplication(job.installDirectory);
    CloseApplication(application);
    // An ended process can still be opened until the last handle to it is closed.
    application.process.reset();
    AwaitCondition("the end of the application's process id", [&] {
        const UniqueHandle process = OpenRunningProcess(application.id);
        // One that runs is another process, which has been given the id since.
        return !process || !HasEnded(process.get());
    });

    ExpectRefusal(Options(), "Update parent does not match installation directory");
}

TEST_F(RefusedUpdate, ToleratesNoSecondInstanceOfTheApplication) {
    application = StartApplication(job.installDirectory);
    const Application second = StartApplication(job.installDirectory);

    ExpectRefusal(Options(), "Another application instance is running; close it first");

    ExpectApplicationStillOpen();
    EXPECT_FALSE(HasEnded(second.process.get()));
}

TEST_F(RefusedUpdate, ToleratesNoSecondInstanceThatWasStartedDuringThePrompt) {
    AskForUpdate();
    const Application second = StartApplication(job.installDirectory);
    AnswerPrompt();

    ExpectQuietEnd(
        *this, RecordText("failed", "Another application instance is running; close it first", 1),
        1);
    ExpectApplicationStillOpen();
    EXPECT_FALSE(HasEnded(second.process.get()));
    EXPECT_EQ(NewStagingDirectories(), std::vector<std::filesystem::path>());
}

TEST_F(RefusedUpdate, IgnoresAnInstanceFromAnotherDirectory) {
    const std::filesystem::path elsewhere = InWorkspace(L"另一个 目录");
    CopyTree(job.installDirectory, elsewhere);
    const Application other = StartApplication(elsewhere);

    BeginUpdate();

    EXPECT_FALSE(HasEnded(other.process.get()));
}

struct WrongOption {
    const char* name;
    const wchar_t* option;
    const wchar_t* value;
    const char* message;
};

std::ostream& operator<<(std::ostream& stream, const WrongOption& wrong) {
    return stream << wrong.name;
}

struct UpdateWithWrongOption : RefusedUpdate, testing::WithParamInterface<WrongOption> {};

TEST_P(UpdateWithWrongOption, IsRefusedByTheWorker) {
    const WrongOption& wrong = GetParam();
    application = StartApplication(job.installDirectory);
    UpdaterArguments options = Options();
    options[wrong.option] = wrong.value;

    ExpectRefusalByWorker(options, wrong.message);

    ExpectApplicationStillOpen();
}

constexpr char kMismatch[] = "Protected installer size or SHA256 mismatch";

INSTANTIATE_TEST_SUITE_P(
    Forms, UpdateWithWrongOption,
    testing::Values(
        WrongOption{"AnotherSize", kSizeOption, L"1", kMismatch},
        WrongOption{"AnotherDigest", kSha256Option,
                    L"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855", kMismatch},
        WrongOption{"NoSize", kSizeOption, L"", "Missing update argument"},
        WrongOption{"SizeThatIsNoNumber", kSizeOption, L"many", "invalid stoull argument"},
        WrongOption{"NoVersion", kVersionOption, L"", "Missing update argument"}),
    [](const auto& suite) { return std::string(suite.param.name); });

TEST_F(RefusedUpdate, AcceptsNoDigestInUpperCase) {
    application = StartApplication(job.installDirectory);
    UpdaterArguments options = Options();
    for (wchar_t& digit : options[kSha256Option]) {
        digit = static_cast<wchar_t>(towupper(digit));
    }

    ExpectRefusalByWorker(options, kMismatch);
}

TEST_F(RefusedUpdate, NamesAMissingSetupProgramByItsPath) {
    application = StartApplication(job.installDirectory);
    const UpdaterArguments options = Options();
    std::filesystem::remove(job.setup);
    StartBroker(options);
    AwaitPrompt();
    AnswerPrompt();

    EXPECT_EQ(AwaitBroker(), 1U);
    const std::optional<StatusRecord> record = FindLastRecord(job.jobDirectory);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->state, "failed");
    EXPECT_NE(record->message.find("copy_file"), std::string::npos) << record->message;
    EXPECT_NE(record->message.find("下载 安装程序.exe"), std::string::npos) << record->message;
    EXPECT_EQ(record->exitCode, 1);
    ExpectApplicationStillOpen();
}

// Here the shell tells the user of the failure first; the broker goes on when the user has read it.
TEST_F(RefusedUpdate, ReportsAFailedStartOfTheWorker) {
    application = StartApplication(job.installDirectory);
    CopyOverFile(RealUpdater(), job.updater);
    ProgramStart start;
    start.program = job.updater;
    start.arguments = CommandLineOf(kBrokerFlag, Options());
    start.token = StartToken::Limited;
    start.state = StartState::Suspended;
    const StartedProgram unhelped = StartProgram(start);
    std::filesystem::rename(job.updater, InWorkspace(L"挪开 的更新程序.exe"));
    WriteFileContent(job.updater, "no program any more\n");
    ResumeThread(unhelped.thread.get());

    CloseMessageBox(AwaitMessageBox(unhelped.process.get()));

    EXPECT_EQ(AwaitEnd(unhelped.process.get(), "the broker's end"), 1U);
    const std::optional<StatusRecord> record = FindLastRecord(job.jobDirectory);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->state, "failed");
    EXPECT_EQ(record->message, "Authorization failed");
    ExpectApplicationStillOpen();
}

}  // namespace

}  // namespace updater
