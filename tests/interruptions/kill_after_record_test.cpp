// Broker and worker are ended right after each record that an update writes.

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <ostream>
#include <string>

#include "end_to_end/running_processes.h"
#include "end_to_end/waiting.h"
#include "interruptions/killed_update.h"

namespace updater {

namespace {

struct KillAfterRecord {
    Victim victim;
    const char* state;
};

std::ostream& operator<<(std::ostream& stream, const KillAfterRecord& kill) {
    return stream << kill.victim << "After_" << kill.state;
}

// The worker has little left to do after its last record, and may be faster.
constexpr int kAttempts = 100;

struct UpdateKilledAfterRecord : testing::TestWithParam<KillAfterRecord> {};

// An update whose victim is ended with a certain record as the last one. As far as possible the
// next record cannot come before that.
struct UpdateStoppedAtRecord : KilledUpdate {
    explicit UpdateStoppedAtRecord(const KillAfterRecord& record)
        : victim(record.victim), state(record.state) {
        if (state == "failed") {
            OfferFailingSetup();
        }
        holdsBroker = state == "authorized";
        closesApplication = state != "authorized" && state != "ready";
    }

    bool HasCome() {
        if (state == outcome && victim == Victim::Broker) {
            HoldHelperUp();
        }
        if (state == outcome && victim == Victim::Worker) {
            LetWorkerRunALittle();
        }
        return HasState(state) || (worker && HasEnded(worker.get()));
    }

    /// The broker waits for the helper's end, which follows the worker's.
    void HoldHelperUp() {
        if (!pause && worker && HasState("ready")) {
            pause.emplace(GetProcessId(helper.get()));
        }
    }

    /// So little at a time that it comes to no end between its record and the next look.
    void LetWorkerRunALittle() {
        if (!pause && HasState("installing")) {
            pause.emplace(GetProcessId(worker.get()));
        }
        if (pause) {
            LetRunFor(std::chrono::milliseconds(1), *pause);
        }
    }

    Victim victim;
    std::string state;
    std::optional<ProcessPause> pause;
};

bool ExpectUnharmedMachineAfter(const KillAfterRecord& record) {
    UpdateStoppedAtRecord killed(record);
    const bool inTime = killed.Happens(record.victim, [&] { return killed.HasCome(); });
    killed.pause.reset();
    if (!inTime || killed.kill->state != record.state) {
        return false;
    }
    killed.ExpectUnharmedMachine();
    return true;
}

TEST_P(UpdateKilledAfterRecord, LeavesAnUnharmedMachine) {
    int attempts = 1;
    while (!ExpectUnharmedMachineAfter(GetParam())) {
        ASSERT_LT(attempts++, kAttempts);
    }
}

INSTANTIATE_TEST_SUITE_P(Records, UpdateKilledAfterRecord,
                         testing::Values(KillAfterRecord{Victim::Broker, "authorized"},
                                         KillAfterRecord{Victim::Broker, "ready"},
                                         KillAfterRecord{Victim::Broker, "installing"},
                                         KillAfterRecord{Victim::Broker, "succeeded"},
                                         KillAfterRecord{Victim::Broker, "failed"},
                                         KillAfterRecord{Victim::Worker, "authorized"},
                                         KillAfterRecord{Victim::Worker, "ready"},
                                         KillAfterRecord{Victim::Worker, "installing"},
                                         KillAfterRecord{Victim::Worker, "succeeded"},
                                         KillAfterRecord{Victim::Worker, "failed"}),
                         testing::PrintToStringParamName());

}  // namespace

}  // namespace updater
