#include "interruptions/killed_update.h"

#include <chrono>

#include "end_to_end/waiting.h"
#include "fixtures/patience.h"
#include "interruptions/aftermath.h"
#include "interruptions/survivor.h"
#include "support/windows_api.h"

namespace updater {

KilledUpdate::KilledUpdate() {
    watchesProcesses = true;
    grantsRights = true;
    closesApplication = true;
}

void KilledUpdate::OfferFailingSetup() {
    OfferSetup(L"v2-exit-code", L"2.0.0.0");
    outcome = "failed";
}

bool KilledUpdate::Happens(Victim victim, const KillMoment& hasCome) {
    holdsHandshake = victim == Victim::Worker;
    application = StartApplication(job.installDirectory);
    StartBroker(Options());
    Await("the victim's start", [&] { return IsRunning(*this, victim) || HasBrokerEnded(); });
    if (!IsRunning(*this, victim)) {
        RaiseStory("The update ended before its victim ran");
    }
    const HANDLE process = victim == Victim::Broker ? broker.get() : worker.get();
    // Without the pause between two looks: some moments are short.
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!hasCome() && !HasEnded(process)) {
        if (std::chrono::steady_clock::now() >= deadline) {
            RaiseStory("The moment of the kill did not come");
        }
        Attend();
        SwitchToThread();
    }
    kill = KillVictim(*this, victim);
    closesApplication = false;
    holdsBroker = false;
    brokerPause.reset();
    return kill.has_value();
}

void KilledUpdate::ExpectUnharmedMachine() {
    ExpectSurvivorEnds(*this, outcome, *kill);
    ExpectWholeStatusFile(*this, *kill);
    AwaitOrphanedSetup(*this);
    ExpectRecovery(*this);
    ExpectNextUpdateSucceeds(*this);
}

}  // namespace updater
