// The setup program goes on when the worker that started it is ended.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>

#include "end_to_end/running_processes.h"
#include "end_to_end/waiting.h"
#include "fixtures/install_mutex.h"
#include "interruptions/aftermath.h"
#include "interruptions/killed_update.h"
#include "interruptions/survivor.h"
#include "support/handle.h"
#include "support/windows_api.h"

namespace updater {

namespace {

bool DoesAnUpdateRun() {
    return OwnHandle(OpenMutexW(SYNCHRONIZE, FALSE, kInstallMutexName)) != nullptr;
}

struct OrphanedSetup : testing::Test, KilledUpdate {
    /// Holds the setup program up as soon as it runs.
    bool CatchSetup() {
        for (const std::filesystem::path& staging : NewStagingDirectories()) {
            for (const RunningProcess& running : ListProcessesOf(staging / L"installer.exe")) {
                setup = OpenRunningProcess(running.id);
                pause.emplace(running.id);
                return true;
            }
        }
        return false;
    }

    UniqueHandle setup;
    std::optional<ProcessPause> pause;
};

// So nothing keeps another update from starting a second setup program beside it: whoever has ended
// a worker has to wait for its setup program's end.
TEST_F(OrphanedSetup, RunsOnThoughNoUpdateRuns) {
    ASSERT_TRUE(Happens(Victim::Worker, [&](const DrivenUpdate&) { return CatchSetup(); }));
    ExpectSurvivorEnds(*this, update, *kill);

    EXPECT_FALSE(HasEnded(setup.get()));
    EXPECT_FALSE(DoesAnUpdateRun());

    pause.reset();
    AwaitEnd(setup.get(), "the setup program's end");
    ExpectRecovery(*this);
    ExpectNextUpdateSucceeds(*this);
}

// A process that has not come to life yet may end with the one that starts it.
constexpr int kAttempts = 10;

struct UnbegunSetup : KilledUpdate {
    /// From when it waits for the application's end the worker runs for a millisecond at a time,
    /// far less than a process takes to come to life. So when its first child is there, that child
    /// has not been let run.
    bool CatchWorkerStartingSetup() {
        if (!pause && HasRecord(update, "ready")) {
            pause.emplace(GetProcessId(update.worker.get()));
        }
        if (pause) {
            LetRunFor(std::chrono::milliseconds(1), *pause);
            setupId = FindNewChild(update.worker.get());
        }
        return IsHeldUp(setupId);
    }

    std::uint32_t setupId = 0;
    std::optional<ProcessPause> pause;
};

bool ExpectUnbegunSetupInNobodysWay() {
    UnbegunSetup killed;
    const bool inTime = killed.Happens(Victim::Worker, [&killed](const DrivenUpdate&) {
        return killed.CatchWorkerStartingSetup();
    });
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
