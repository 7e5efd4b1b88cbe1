// Broker and worker are ended right after each record that an update writes.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

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

// A process may be faster: it writes its next record or, after the last, has little left to do.
constexpr int kAttempts = 10;

struct UpdateKilledAfterRecord : testing::TestWithParam<KillAfterRecord> {};

// An update's records in their order, but for the last, which stands behind them all.
bool HasRecordOrLater(const DrivenUpdate& update, std::string_view state) {
    constexpr std::array<std::string_view, 3> kOrder = {"authorized", "ready", "installing"};
    const std::optional<std::string> last = LastState(update);
    return last && !last->empty() &&
           std::ranges::find(kOrder, *last) >= std::ranges::find(kOrder, state);
}

bool ExpectUnharmedMachineAfter(const KillAfterRecord& record) {
    const std::string_view state = record.state;
    KilledUpdate killed;
    if (state == "failed") {
        killed.OfferFailingSetup();
    }
    killed.holdsBroker = state == "authorized";
    const bool inTime = killed.Happens(
        record.victim, [&](const DrivenUpdate& update) { return HasRecordOrLater(update, state); });
    if (!inTime || killed.kill->state != state) {
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
