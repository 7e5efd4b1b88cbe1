// The setup program goes on when the worker that started it is ended.

#include <gtest/gtest.h>

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

}  // namespace

}  // namespace updater
