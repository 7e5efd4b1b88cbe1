#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <vector>

#include "end_to_end/error_box.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
#include "support/file_system.h"
#include "support/windows_api.h"

namespace updater {

namespace {

// Updates in which something comes between the setup program's end and the worker's next step.
struct DisturbedUpdate : UpdateTest {
    /// The update is one that has to be rolled back.
    void UpdateWith(const std::function<void()>& disturbance) {
        OfferSetup(L"v2-empty-inventory", L"2.0.0.0");
        BeginUpdate();
        const UniqueHandle worker = OpenWorker(run);
        CloseApplication(application);
        AwaitRecord(run, "installing");
        staging = NewStagingDirectories().at(0);
        AwaitCondition("the setup program's start", [&] { return HasSetupUnpackedItself(); });
        const ProcessPause pause(GetProcessId(worker.get()));
        // Otherwise the worker has perhaps not been held up in time.
        ASSERT_FALSE(ListSetups().empty());
        AwaitCondition("the setup program's end", [&] { return ListSetups().empty(); });
        disturbance();
    }

    [[nodiscard]] std::vector<RunningProcess> ListSetups() const {
        return ListProcessesOf(staging / L"installer.exe");
    }

    /// The setup program does its work in a second process, which it has unpacked.
    [[nodiscard]] bool HasSetupUnpackedItself() const {
        const std::vector<RunningProcess> setups = ListSetups();
        const std::vector<RunningProcess> running = ListRunningProcesses();
        return !setups.empty() &&
               std::ranges::find(running, setups[0].id, &RunningProcess::parentId) != running.end();
    }

    std::filesystem::path staging;
};

TEST_F(DisturbedUpdate, IsNotRolledBackUnderARunningApplication) {
    std::optional<Application> started;
    UpdateWith([&] { started = StartApplication(job.installDirectory); });

    ExpectErrorBox(
        run, job.jobDirectory,
        RecordText("failed", "Another application instance is running; close it first", 1));
    EXPECT_FALSE(HasEnded(started->process.get()));
    EXPECT_EQ(RegisteredVersion(), L"2.0.0.0");
}

TEST_F(DisturbedUpdate, SaysWhenTheRestoredProgramIsNotThePreviousOne) {
    UpdateWith([&] {
        CopyOverFile(job.installDirectory / L"corvellan.exe",
                     staging / L"backup" / L"corvellan.exe");
    });

    ExpectErrorBox(
        run, job.jobDirectory,
        RecordText("failed", "Installed program inventory is empty; restore version mismatch", 1));
    EXPECT_EQ(RegisteredVersion(), L"1.0.0.0");
    ExpectRestart(job.installDirectory, "2.0.0.0");
}

TEST_F(DisturbedUpdate, IsNotRolledBackWithoutItsUninstallEntry) {
    UpdateWith([] { ReplaceUninstallEntry({}); });

    ExpectErrorBox(run, job.jobDirectory,
                   RecordText("failed", "Cannot restore registered version", 1));
    EXPECT_EQ(FindDifferences(programBefore, ReadProgramFiles(job.installDirectory)),
              std::vector<std::string>());
    EXPECT_EQ(RegisteredVersion(), L"");
}

TEST_F(DisturbedUpdate, IsNotRolledBackWithoutItsBackup) {
    UpdateWith([&] { RemoveFile(staging / L"backup" / L"engine.dll"); });

    CloseMessageBox(AwaitMessageBox(run.brokerId));
    EXPECT_EQ(AwaitBroker(run), 1U);
    const std::optional<CollectedRecord> record = FindStatusRecord(job.jobDirectory);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->state, "failed");
    EXPECT_NE(record->message.find("copy_file"), std::string::npos) << record->message;
    EXPECT_NE(record->message.find("engine.dll"), std::string::npos) << record->message;
}

TEST_F(DisturbedUpdate, ReportsAnApplicationThatCannotBeStartedAgain) {
    BeginUpdate();
    CloseApplication(application);
    AwaitRecord(run, "installing");
    {
        const ProcessPause pause(run.brokerId);
        AwaitEnd(run.helper.get(), "the worker's end");
        std::filesystem::rename(job.installDirectory / L"corvellan.exe",
                                job.installDirectory / L"moved.exe");
    }

    ExpectQuietEnd(run, job.jobDirectory, RecordText("failed", "Process launch failed: 2", 1), 1);
}

}  // namespace

}  // namespace updater
