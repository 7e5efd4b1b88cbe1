// The setup program goes on when the worker that started it is ended.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "end_to_end/running_processes.h"
#include "end_to_end/setup_gate.h"
#include "end_to_end/waiting.h"
#include "fixtures/install_mutex.h"
#include "interruptions/aftermath.h"
#include "interruptions/killed_update.h"
#include "interruptions/survivor.h"
#include "support/windows_api.h"

namespace updater {

namespace {

struct OrphanedSetup : testing::Test, KilledUpdate {
    OrphanedSetup() { OfferSetup(L"v2-empty-inventory", L"2.0.0.0"); }

    /// One that the worker has only made would never begin, see below.
    [[nodiscard]] bool HasSetupBegun() const {
        const std::vector<RunningProcess> setups = ListSetups(*this);
        return !setups.empty() && HasBegun(setups[0].id);
    }

    // So nothing keeps another update from starting a second setup program beside it: whoever has
    // ended a worker has to wait for its setup program's end.
    void ExpectToRunOnFrom(const KillMoment& moment) {
        ASSERT_TRUE(Happens(Victim::Worker, moment));
        ExpectSurvivorEnds(*this, outcome, *kill);

        EXPECT_EQ(ListSetups(*this).size(), 1U);
        EXPECT_FALSE(InstallMutexExists());

        gate.Open();
        AwaitOrphanedSetup(*this);
        EXPECT_EQ(ListSetups(*this).size(), 0U);
        EXPECT_TRUE(gate.IsReached());
        ExpectRecovery(*this);
        ExpectNextUpdateSucceeds(*this);
    }

    SetupGate gate{*this};
};

TEST_F(OrphanedSetup, RunsOnThoughNoUpdateRuns) {
    ExpectToRunOnFrom([&] { return HasSetupBegun(); });
}

TEST_F(OrphanedSetup, RunsOnFromTheMidstOfItsWork) {
    ExpectToRunOnFrom([&] { return gate.IsReached(); });
}

// A process that has not come to life yet may end with the one that starts it.
constexpr int kAttempts = 100;

struct UnbegunSetup : KilledUpdate {
    /// From when it waits for the application's end, the worker runs for a millisecond at a time,
    /// far less than a process takes to come to life. So when its first child is there, that child
    /// has not been let run.
    bool CatchWorkerStartingSetup() {
        if (!pause && HasState("ready")) {
            pause.emplace(GetProcessId(worker.get()));
        }
        if (pause) {
            LetRunFor(std::chrono::milliseconds(1), *pause);
            setupId = FindNewChild(worker.get());
        }
        return IsHeldUp(setupId);
    }

    std::uint32_t setupId = 0;
    std::optional<ProcessPause> pause;
};

bool ExpectUnbegunSetupInNobodysWay() {
    UnbegunSetup killed;
    const bool inTime =
        killed.Happens(Victim::Worker, [&killed] { return killed.CatchWorkerStartingSetup(); });
    if (!inTime || !IsHeldUp(killed.setupId)) {
        return false;
    }
    killed.ExpectUnharmedMachine();
    EXPECT_TRUE(IsHeldUp(killed.setupId));
    return true;
}

// A worker that is ended while it starts the setup program cannot let it run any more. What is left
// stays until the computer is started again.
TEST(OrphanedSetupThatNeverBegins, IsInNobodysWay) {
    int attempts = 1;
    while (!ExpectUnbegunSetupInNobodysWay()) {
        ASSERT_LT(attempts++, kAttempts);
    }
}

}  // namespace

}  // namespace updater
