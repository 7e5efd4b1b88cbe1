#include "interruptions/killed_update.h"

#include <chrono>
#include <stdexcept>

#include "end_to_end/waiting.h"
#include "interruptions/aftermath.h"
#include "interruptions/survivor.h"
#include "support/windows_api.h"

namespace updater {

void KilledUpdate::OfferFailingSetup() {
    OfferSetup(L"v2-exit-code", L"2.0.0.0");
    outcome = "failed";
}

bool KilledUpdate::Happens(Victim victim, const KillMoment& hasCome) {
    update = StartDrivenUpdate(job, outcome);
    update.holdsHandshake = victim == Victim::Worker;
    update.holdsBroker = holdsBroker;
    DriveUntil(update, "the victim's start", [&] { return IsRunning(update, victim); });
    // Without the pause between two looks: some moments are short.
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!hasCome(update)) {
        if (std::chrono::steady_clock::now() >= deadline) {
            throw std::runtime_error("The moment of the kill did not come");
        }
        Attend(update);
        SwitchToThread();
    }
    kill = KillVictim(*this, update, victim);
    update.holdsBroker = false;
    update.brokerPause.reset();
    return kill.has_value();
}

void KilledUpdate::ExpectUnharmedMachine() {
    ExpectSurvivorEnds(*this, update, *kill);
    ExpectWholeStatusFile(update, *kill);
    AwaitOrphanedSetup(*this);
    ExpectRecovery(*this);
    ExpectNextUpdateSucceeds(*this);
}

}  // namespace updater
