// Broker and worker are ended right after each record that an update writes.

#include <gtest/gtest.h>

#include <ostream>
#include <string_view>

#include "interruptions/killed_update.h"

namespace updater {

namespace {

struct KillAfterRecord {
    Victim victim;
    const char* state;
};

std::ostream& operator<<(std::ostream& stream, const KillAfterRecord& kill) {
    return stream << kill.victim << "After" << kill.state;
}

// After its last record a process has little left to do, and may be gone before it can be ended.
constexpr int kAttempts = 10;

struct UpdateKilledAfterRecord : testing::TestWithParam<KillAfterRecord> {};

bool ExpectUnharmedMachineAfter(const KillAfterRecord& record) {
    KilledUpdate killed;
    if (std::string_view(record.state) == "failed") {
        killed.OfferFailingSetup();
    }
    if (!killed.Happens(record.victim, [&](const DrivenUpdate& update) {
            return HasRecord(update, record.state);
        })) {
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
