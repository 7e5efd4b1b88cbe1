#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <set>
#include <string>

#include "end_to_end/running_processes.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
#include "fixtures/application_names.h"
#include "fixtures/file_content.h"
#include "fixtures/scoped_variable.h"
#include "fixtures/temporary_directory.h"
#include "hardening/start_report.h"
#include "support/application_identity.h"
#include "support/argument_quoting.h"
#include "support/file_digest.h"
#include "support/file_reading.h"
#include "support/file_system.h"
#include "support/process_utilities.h"

namespace updater {

namespace {

std::filesystem::path StartReporter() {
    const std::filesystem::path own = GetProcessImagePath(GetCurrentProcess());
    return own.parent_path() / L"start-reporter.exe";
}

UniqueHandle MakeEvent(bool inheritable) {
    SECURITY_ATTRIBUTES security{sizeof(security), nullptr, inheritable ? TRUE : FALSE};
    return OwnHandle(CreateEventW(&security, TRUE, FALSE, nullptr));
}

bool IsSet(const UniqueHandle& event) {
    return WaitForSingleObject(event.get(), 0) == WAIT_OBJECT_0;
}

// Gives a process an inheritable handle to the event and returns the handle's number there.
std::uintptr_t GiveInheritableHandle(const UniqueHandle& event, std::uint32_t processId) {
    const UniqueHandle process = OwnHandle(OpenProcess(PROCESS_DUP_HANDLE, FALSE, processId));
    HANDLE given = nullptr;
    if (DuplicateHandle(GetCurrentProcess(), event.get(), process.get(), &given, 0, TRUE,
                        DUPLICATE_SAME_ACCESS) == 0) {
        RaiseLastError("Cannot give a handle to a process");
    }
    return reinterpret_cast<std::uintptr_t>(given);
}

// A whole update whose setup program, and then the new application, reports its start. Worker and
// broker each hold an inheritable handle, and the source of the setup program is replaced as soon
// as the worker has its copy.
struct ReportedUpdate : UpdateScene {
    ReportedUpdate() {
        CreateDirectories(reports);
        OfferSetupFile(StartReporter(), L"2.0.0.0");
        BeginUpdate();
        WriteFileContent(job.setup, "another program");
        environment = EnvironmentOfUpdater();
        AwaitWorker();
        ListHandleNumbers(reports,
                          {GiveInheritableHandle(eventOfWorker, GetProcessId(worker.get())),
                           GiveInheritableHandle(eventOfBroker, BrokerId())});
        CloseApplication(application);
        exitCode = AwaitBroker();
        setup = AwaitReport(L"installer.exe");
        restarted = AwaitReport(kExecutableName);
    }

    // What this process had when it started the broker.
    [[nodiscard]] std::set<std::wstring> EnvironmentOfUpdater() const {
        const StandInVariables variables(job.consent, eventBaseName);
        return OwnEnvironment();
    }

    [[nodiscard]] StartReport AwaitReport(const std::wstring& imageName) const {
        const std::filesystem::path file = StartReportFile(reports, imageName);
        // Who gives a file its name has it open for a moment longer, and lets nobody read it.
        AwaitCondition("a program's report of its start",
                       [&] { return OpenFileToRead(file) != nullptr; });
        return ReadStartReport(file);
    }

    std::filesystem::path reports = InWorkspace(L"启动 报告");
    ScopedVariable reportsVariable{kStartReportsVariable, reports.native()};
    UniqueHandle eventOfWorker = MakeEvent(false);
    UniqueHandle eventOfBroker = MakeEvent(false);
    std::set<std::wstring> environment;
    std::uint32_t exitCode = 0;
    StartReport setup;
    StartReport restarted;
};

struct StartedPrograms : testing::Test {
    static void SetUpTestSuite() { update = std::make_unique<ReportedUpdate>(); }
    static void TearDownTestSuite() { update.reset(); }
    void SetUp() override { ASSERT_TRUE(update); }

    inline static std::unique_ptr<ReportedUpdate> update;
};

TEST_F(StartedPrograms, ComeFromTheCopyWhenTheSourceIsReplacedAfterIt) {
    EXPECT_EQ(update->exitCode, 0U);
    EXPECT_EQ(LastRecordText(update->job.jobDirectory),
              RecordText("succeeded", "Installed version 2.0.0.0", 0));
    EXPECT_EQ(FileSha256Hex(ApplicationPath(update->job.installDirectory)),
              FileSha256Hex(StartReporter()));
    EXPECT_EQ(ReadFileContent(update->job.setup), "another program");
}

TEST_F(StartedPrograms, BeginWithTheSetupProgramInTheStagingDirectory) {
    const std::vector<std::filesystem::path> staging = update->NewStagingDirectories();
    ASSERT_EQ(staging.size(), 1U);
    EXPECT_EQ(update->setup.image, staging[0] / L"installer.exe");
    EXPECT_EQ(update->setup.workingDirectory, staging[0]);
    EXPECT_EQ(update->setup.parentProcessId, GetProcessId(update->worker.get()));
    EXPECT_TRUE(update->setup.elevated);
}

TEST_F(StartedPrograms, EndWithTheApplicationStartedByTheBrokerWithItsRights) {
    const std::filesystem::path& directory = update->job.installDirectory;
    EXPECT_EQ(update->restarted.image, ApplicationPath(directory));
    EXPECT_EQ(update->restarted.commandLine,
              QuoteArgument(ApplicationPath(directory).native()) + L' ');
    EXPECT_EQ(update->restarted.workingDirectory, directory);
    EXPECT_EQ(update->restarted.parentProcessId, update->BrokerId());
    EXPECT_FALSE(update->restarted.elevated);
}

TEST_F(StartedPrograms, HaveTheEnvironmentOfTheUpdaterButForTheSetupProgramsTemporaryFiles) {
    const std::wstring staging = update->NewStagingDirectories().at(0).native();
    std::set<std::wstring> protectedEnvironment;
    for (const std::wstring& variable : update->environment) {
        const std::wstring name = variable.substr(0, variable.find(L'=') + 1);
        const bool isRedirected = name == L"TMP=" || name == L"TEMP=";
        protectedEnvironment.insert(isRedirected ? name + staging : variable);
    }
    EXPECT_THAT(update->setup.environment, testing::ContainerEq(protectedEnvironment));
    EXPECT_THAT(update->restarted.environment, testing::ContainerEq(update->environment));
}

TEST_F(StartedPrograms, InheritNoHandle) {
    EXPECT_FALSE(IsSet(update->eventOfWorker));
    EXPECT_FALSE(IsSet(update->eventOfBroker));
}

// The test above proves something only if a program that inherits a handle can be told from others.
TEST(StartReporter, SignalsAHandleThatItInherits) {
    const TemporaryDirectory directory;
    const ScopedVariable reports(kStartReportsVariable, directory.path.native());
    for (const bool inherits : {true, false}) {
        const UniqueHandle event = MakeEvent(true);
        ListHandleNumbers(directory.path, {reinterpret_cast<std::uintptr_t>(event.get())});
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION started{};
        ASSERT_NE(CreateProcessW(StartReporter().c_str(), nullptr, nullptr, nullptr,
                                 inherits ? TRUE : FALSE, 0, nullptr, nullptr, &startup, &started),
                  0);
        const UniqueHandle process = OwnHandle(started.hProcess);
        const UniqueHandle thread = OwnHandle(started.hThread);
        EXPECT_EQ(AwaitEnd(process.get(), "the reporter's end"), 0U);
        EXPECT_EQ(IsSet(event), inherits);
    }
}

}  // namespace

}  // namespace updater
