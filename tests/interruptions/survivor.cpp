#include "interruptions/survivor.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <optional>

#include "end_to_end/installed_program.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
#include "end_to_end/window_text.h"
#include "interruptions/aftermath.h"
#include "support/file_system.h"
#include "support/process_utilities.h"
#include "support/windows_api.h"

namespace updater {

namespace {

// By then a worker that did not wait would at least have begun its backup.
constexpr DWORD kWaitingTime = 500;

bool IsSignalled(const UniqueHandle& event) {
    return event && IsSignalledWithin(event.get(), 0);
}

std::string LastRecord(const UpdateScene& update) {
    return LastRecordText(update.job.jobDirectory);
}

void ExpectBoxAndRestart(UpdateScene& update, const Kill& kill) {
    EXPECT_EQ(LastRecord(update), RecordOf(kill.state));
    // Otherwise the orphaned setup program may be replacing the application.
    if (kill.state != "installing" || HasUnbegunSetup(update)) {
        EXPECT_EQ(ListApplications(update.job.installDirectory).size(), 1U);
        const bool installed = kill.state == "succeeded";
        ExpectRestart(update.job.installDirectory, installed ? "2.0.0.0" : "1.0.0.0");
    }
    ExpectErrorBox(update, RecordOf(kill.state), kKillCode);
    EXPECT_EQ(LastRecord(update), RecordOf(kill.state));
}

void ExpectNoRestart(UpdateScene& update, const Kill& kill) {
    EXPECT_EQ(update.AwaitBroker(), 1U);
    const bool ready = IsSignalled(update.ready);
    const std::string neverReady = RecordText("failed", "Upgrade helper did not become ready", 1);
    const std::string before = RecordOf(ready ? "ready" : "authorized");
    EXPECT_EQ(LastRecord(update), kill.state.empty() ? neverReady : before);
    // Nobody has started another, and it has ended only if it was told to.
    const std::size_t running = ListApplications(update.job.installDirectory).size();
    EXPECT_TRUE(running == 1 || (running == 0 && update.applicationToldToClose)) << running;
}

// The orphaned setup program is just replacing the application.
void ExpectFailedRestart(UpdateScene& update, const Kill& kill) {
    EXPECT_EQ(kill.state, "installing");
    EXPECT_EQ(update.AwaitBroker(), 1U);
    const std::optional<StatusRecord> record = FindLastRecord(update.job.jobDirectory);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->state, "failed");
    EXPECT_TRUE(record->message.starts_with("Process launch failed: ")) << record->message;
}

// Whether the broker had told the worker to go on follows from the last record, but for "ready":
// then it does so as soon as the application has ended.
void ExpectCommitAsRecorded(const UpdateScene& update, const Kill& kill, bool committed) {
    if (kill.state == "ready") {
        EXPECT_TRUE(update.applicationToldToClose || !committed);
    } else {
        EXPECT_EQ(committed, !kill.state.empty() && kill.state != "authorized") << kill.state;
    }
}

// The broker looks four times a second, and starts the application before it shows the box.
void ExpectBrokerEnds(UpdateScene& update, const Kill& kill) {
    if (!update.commit) {
        update.OpenHandshake();
    }
    update.Await("the broker's end or its error box", [&] {
        return update.HasBrokerEnded() || !ListWindows(update.BrokerId()).empty();
    });
    const bool committed = IsSignalled(update.commit);
    ExpectCommitAsRecorded(update, kill, committed);
    if (!committed) {
        ExpectNoRestart(update, kill);
    } else if (update.HasBrokerEnded()) {
        ExpectFailedRestart(update, kill);
    } else {
        ExpectBoxAndRestart(update, kill);
    }
}

void ExpectOutcome(const UpdateScene& update, const std::string& outcome, const Kill& kill) {
    const bool installed = outcome == "succeeded";
    EXPECT_EQ(AwaitEnd(update.helper.get(), "the worker's end"), installed ? 0U : 1U);
    EXPECT_EQ(LastRecord(update), RecordOf(outcome));
    EXPECT_EQ(FindInventoryDifferences(update.job.installDirectory), std::vector<std::string>());
    // Only a broker that lived to see the outcome can have started the application.
    if (kill.state != outcome) {
        EXPECT_EQ(ListApplications(update.job.installDirectory), std::vector<std::uint32_t>());
    }
}

void ExpectMissingBroker(const UpdateScene& update) {
    EXPECT_EQ(AwaitEnd(update.helper.get(), "the worker's end"), 1U);
    EXPECT_EQ(LastRecord(update), RecordText("failed", "Update broker is missing", 1));
}

void ExpectWaitForCommit(UpdateScene& update) {
    const auto isReady = [&] { return update.HasState("authorized") || update.HasState("ready"); };
    update.Await("the worker's readiness", isReady);
    CloseApplication(update.application);
    EXPECT_FALSE(IsSignalledWithin(update.worker.get(), kWaitingTime));
    EXPECT_TRUE(isReady());
    for (const std::filesystem::path& staging : update.NewStagingDirectories()) {
        EXPECT_FALSE(PathExists(staging / L"backup"));
    }
    TerminateProcess(update.worker.get(), kKillCode);
    AwaitEnd(update.helper.get(), "the worker's end");
}

// Returns false when the broker was ended before it started one.
bool FindWorker(UpdateScene& update) {
    AwaitEnd(update.standIn.process.get(), "the end of the broker's stand-in");
    update.Attend();
    if (!update.helper) {
        return false;
    }
    // A broker that was ended while it started the helper may have left one that never begins.
    const auto helperId = GetProcessId(update.helper.get());
    update.Await("the helper's question",
                 [&] { return IsSignalledWithin(update.asked.get(), 0) || IsHeldUp(helperId); });
    if (!IsSignalledWithin(update.asked.get(), 0)) {
        TerminateProcess(update.helper.get(), kKillCode);
        return false;
    }
    update.Await("the worker's start",
                 [&] { return update.worker || HasEnded(update.helper.get()); });
    return true;
}

void ExpectWorkerEnds(UpdateScene& update, const std::string& outcome, const Kill& kill) {
    if (!FindWorker(update)) {
        EXPECT_EQ(kill.state, "");
        EXPECT_EQ(LastRecord(update), "");
        return;
    }
    // Now only the worker keeps the events, from when it has opened them until its end, which may
    // have come meanwhile.
    update.OpenHandshake();
    const bool committed = IsSignalled(update.commit) || update.HasState(outcome);
    ExpectCommitAsRecorded(update, kill, committed);
    if (committed) {
        ExpectOutcome(update, outcome, kill);
    } else if (update.commit) {
        ExpectWaitForCommit(update);
    } else {
        ExpectMissingBroker(update);
    }
}

void ExpectEnd(UpdateScene& update, const std::string& outcome, const Kill& kill) {
    switch (kill.victim) {
        case Victim::Broker:
            return ExpectWorkerEnds(update, outcome, kill);
        case Victim::Worker:
            return ExpectBrokerEnds(update, kill);
        case Victim::Everything:
            return;
    }
}

// The broker starts the application whatever an orphaned setup program is doing to its files just
// then, so it may fail to come up. A broker that was ended while it started the application may
// have left one that never begins; it keeps its file open until somebody ends it.
void CloseApplications(const UpdateScene& update) {
    for (const std::uint32_t processId : ListApplications(update.job.installDirectory)) {
        const Application running{OpenRunningProcess(processId), processId};
        if (!running.process) {
            continue;
        }
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

}  // namespace

void ExpectSurvivorEnds(UpdateScene& update, const std::string& outcome, const Kill& kill) {
    ExpectEnd(update, outcome, kill);
    CloseApplications(update);
}

}  // namespace updater
