#include "interruptions/survivor.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <optional>

#include "end_to_end/installed_program.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
#include "end_to_end/window_text.h"
#include "support/file_system.h"
#include "support/process_utilities.h"
#include "support/windows_api.h"

namespace updater {

namespace {

// By then a worker that did not wait would at least have begun its backup.
constexpr DWORD kWaitingTime = 500;

constexpr DWORD kBeginTime = 20000;

// The broker looks four times a second, and starts the application before it shows the box; the
// machine may have other things to do.
constexpr std::chrono::seconds kNoticeTime{20};

bool IsSignalled(const UniqueHandle& event) {
    return event && IsSignalledWithin(event.get(), 0);
}

std::string LastRecord(const DrivenUpdate& update) {
    return LastRecordText(update.job.jobDirectory);
}

void ExpectBoxAndRestart(const DrivenUpdate& update, const Kill& kill) {
    EXPECT_TRUE(IsSignalled(update.commit));
    EXPECT_EQ(LastRecord(update), RecordOf(kill.state));
    if (kill.state != "installing") {
        EXPECT_EQ(ListApplications(update.job.installDirectory).size(), 1U);
        const bool installed = kill.state == "succeeded";
        ExpectRestart(update.job.installDirectory, installed ? "2.0.0.0" : "1.0.0.0");
    }
    ExpectErrorBox(update.run, update.job.jobDirectory, RecordOf(kill.state), kKillCode);
    EXPECT_EQ(LastRecord(update), RecordOf(kill.state));
}

void ExpectNoRestart(const DrivenUpdate& update, const Kill& kill) {
    EXPECT_EQ(AwaitBroker(update.run), 1U);
    const bool ready = IsSignalled(update.ready);
    const std::string neverReady = RecordText("failed", "Upgrade helper did not become ready", 1);
    const std::string before = RecordOf(ready ? "ready" : "authorized");
    EXPECT_EQ(LastRecord(update), kill.state.empty() ? neverReady : before);
    // Nobody has started another, and it has ended only if it was told to.
    const std::size_t running = ListApplications(update.job.installDirectory).size();
    EXPECT_TRUE(running == 1 || (running == 0 && update.applicationToldToClose)) << running;
}

// The orphaned setup program is just replacing the application.
void ExpectFailedRestart(const DrivenUpdate& update, const Kill& kill) {
    EXPECT_EQ(kill.state, "installing");
    EXPECT_EQ(AwaitBroker(update.run), 1U);
    const std::optional<CollectedRecord> record = FindStatusRecord(update.job.jobDirectory);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->state, "failed");
    EXPECT_TRUE(record->message.starts_with("Process launch failed: ")) << record->message;
}

void ExpectBrokerEnds(const DrivenUpdate& update, const Kill& kill) {
    AwaitCondition(
        "the broker's end or its error box",
        [&] {
            return HasEnded(update.run.standIn.process.get()) ||
                   !ListWindows(update.run.brokerId).empty();
        },
        kNoticeTime);
    if (!HasEnded(update.run.standIn.process.get())) {
        ExpectBoxAndRestart(update, kill);
    } else if (IsSignalled(update.commit)) {
        ExpectFailedRestart(update, kill);
    } else {
        ExpectNoRestart(update, kill);
    }
}

void ExpectOutcome(const DrivenUpdate& update, const Kill& kill) {
    const bool installed = update.outcome == "succeeded";
    EXPECT_EQ(AwaitEnd(update.run.helper.get(), "the worker's end"), installed ? 0U : 1U);
    EXPECT_EQ(LastRecord(update), RecordOf(update.outcome));
    EXPECT_EQ(FindInventoryDifferences(update.job.installDirectory), std::vector<std::string>());
    // Only a broker that lived to see the outcome can have started the application.
    if (kill.state != update.outcome) {
        EXPECT_EQ(ListApplications(update.job.installDirectory), std::vector<std::uint32_t>());
    }
}

void ExpectMissingBroker(const DrivenUpdate& update) {
    EXPECT_EQ(AwaitEnd(update.run.helper.get(), "the worker's end"), 1U);
    EXPECT_EQ(LastRecord(update), RecordText("failed", "Update broker is missing", 1));
}

void ExpectWaitForCommit(const UpdateScene& scene, const DrivenUpdate& update) {
    const auto isReady = [&] {
        return HasRecord(update, "authorized") || HasRecord(update, "ready");
    };
    AwaitCondition("the worker's readiness", isReady);
    CloseApplication(update.application);
    EXPECT_FALSE(IsSignalledWithin(update.worker.get(), kWaitingTime));
    EXPECT_TRUE(isReady());
    for (const std::filesystem::path& staging : scene.NewStagingDirectories()) {
        EXPECT_FALSE(PathExists(staging / L"backup"));
    }
    TerminateProcess(update.worker.get(), kKillCode);
    AwaitEnd(update.run.helper.get(), "the worker's end");
}

// Returns false when the broker was ended before it started one.
bool FindWorker(DrivenUpdate& update) {
    AwaitEnd(update.run.standIn.process.get(), "the end of the broker's stand-in");
    Attend(update);
    if (!update.run.helper) {
        return false;
    }
    // A broker that was ended while it started the helper may have left one that never begins.
    if (!IsSignalledWithin(update.run.asked.get(), kBeginTime)) {
        TerminateProcess(update.run.helper.get(), kKillCode);
        return false;
    }
    DriveUntil(update, "the worker's start",
               [&] { return update.worker || HasEnded(update.run.helper.get()); });
    return true;
}

void ExpectWorkerEnds(const UpdateScene& scene, DrivenUpdate& update, const Kill& kill) {
    if (!FindWorker(update)) {
        EXPECT_EQ(LastRecord(update), "");
        return;
    }
    // Now only the worker keeps the events, from when it has opened them until its end.
    OpenHandshake(update);
    if (IsSignalled(update.commit)) {
        ExpectOutcome(update, kill);
    } else if (update.commit) {
        ExpectWaitForCommit(scene, update);
    } else if (HasRecord(update, update.outcome)) {
        // It has ended meanwhile.
        ExpectOutcome(update, kill);
    } else {
        ExpectMissingBroker(update);
    }
}

void ExpectEnd(const UpdateScene& scene, DrivenUpdate& update, const Kill& kill) {
    switch (kill.victim) {
        case Victim::Broker:
            return ExpectWorkerEnds(scene, update, kill);
        case Victim::Worker:
            return ExpectBrokerEnds(update, kill);
        case Victim::Everything:
            return;
    }
}

// The broker starts the application whatever an orphaned setup program is doing to its files just
// then, so it may fail to come up. A broker that was ended while it started the application may
// have left one that never begins; it keeps its file open until somebody ends it.
void CloseApplications(const DrivenUpdate& update) {
    for (const std::uint32_t processId : ListApplications(update.job.installDirectory)) {
        const Application running{OpenRunningProcess(processId), processId};
        if (running.process) {
            AwaitCondition("the application's window or end", [&] {
                return HasEnded(running.process.get()) || !ListWindows(processId).empty() ||
                       IsHeldUp(processId);
            });
            if (IsHeldUp(processId)) {
                TerminateProcess(running.process.get(), kKillCode);
            }
            CloseApplication(running);
        }
    }
}

}  // namespace

void ExpectSurvivorEnds(const UpdateScene& scene, DrivenUpdate& update, const Kill& kill) {
    ExpectEnd(scene, update, kill);
    CloseApplications(update);
}

}  // namespace updater
