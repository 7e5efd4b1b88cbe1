#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <vector>

#include "end_to_end/error_box.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/setup_gate.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
#include "fixtures/application_names.h"
#include "support/file_system.h"
#include "support/windows_api.h"

namespace updater {

namespace {

// Updates in which something comes between the setup program's end and the worker's next step.
struct DisturbedUpdate : UpdateTest {
    /// The update is one that has to be rolled back.
    void UpdateWith(const std::function<void()>& disturbance) {
        OfferSetup(L"v2-empty-inventory", L"2.0.0.0");
        const SetupGate gate(*this);
        CarryOutUpdate();
        AwaitWorker();
        Await("the setup program at its gate", [&] { return gate.IsReached(); });
        // All that it does now is wait for the setup program's end.
        const ProcessPause pause(GetProcessId(worker.get()));
        gate.Open();
        Await("the setup program's end", [&] { return ListSetups(*this).empty(); });
        staging = NewStagingDirectories().at(0);
        disturbance();
    }

    std::filesystem::path staging;
};

TEST_F(DisturbedUpdate, IsNotRolledBackUnderARunningApplication) {
    std::optional<Application> opened;
    UpdateWith([&] { opened = StartApplicationAnyway(job.installDirectory); });

    ExpectErrorBox(
        *this, RecordText("failed", "Another application instance is running; close it first", 1));
    EXPECT_FALSE(HasEnded(opened->process.get()));
    EXPECT_EQ(RegisteredVersion(), L"2.0.0.0");
}

TEST_F(DisturbedUpdate, SaysWhenTheRestoredProgramIsNotThePreviousOne) {
    UpdateWith([&] {
        CopyOverFile(job.installDirectory / kExecutableName, staging / L"backup" / kExecutableName);
    });

    ExpectErrorBox(
        *this,
        RecordText("failed", "Installed program inventory is empty; restore version mismatch", 1));
    EXPECT_EQ(RegisteredVersion(), L"1.0.0.0");
    ExpectRestart(job.installDirectory, "2.0.0.0");
}

TEST_F(DisturbedUpdate, IsNotRolledBackWithoutItsUninstallEntry) {
    UpdateWith([] { ReplaceUninstallEntry({}); });

    ExpectErrorBox(*this, RecordText("failed", "Cannot restore registered version", 1));
    EXPECT_EQ(FindDifferences(programBefore, ReadProgramFiles(job.installDirectory)),
              std::vector<std::string>());
    EXPECT_EQ(RegisteredVersion(), L"");
}

TEST_F(DisturbedUpdate, IsNotRolledBackWithoutItsBackup) {
    UpdateWith([&] { RemoveFile(staging / L"backup" / L"engine.dll"); });

    CloseMessageBox(AwaitErrorBox(*this));
    EXPECT_EQ(AwaitBroker(), 1U);
    const std::optional<StatusRecord> record = FindLastRecord(job.jobDirectory);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->state, "failed");
    EXPECT_NE(record->message.find("copy_file"), std::string::npos) << record->message;
    EXPECT_NE(record->message.find("engine.dll"), std::string::npos) << record->message;
    EXPECT_EQ(record->exitCode, 1);
}

TEST_F(DisturbedUpdate, ReportsAnApplicationThatCannotBeStartedAgain) {
    BeginUpdate();
    AwaitWorker();
    {
        // The broker waits for its end.
        const ProcessPause pause(GetProcessId(helper.get()));
        CloseApplication(application);
        AwaitEnd(worker.get(), "the worker's end");
        std::filesystem::rename(job.installDirectory / kExecutableName,
                                job.installDirectory / L"moved.exe");
    }

    ExpectQuietEnd(*this, RecordText("failed", "Process launch failed: 2", 1), 1);
}

}  // namespace

}  // namespace updater
