#include "interruptions/aftermath.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <set>

#include "end_to_end/running_processes.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
#include "interruptions/recovery_by_hand.h"
#include "support/file_system.h"

namespace updater {

namespace {

// Its capitals are not those of a program file, so it is the user's.
constexpr wchar_t kOwnProgram[] = L"Setup.EXE";

}  // namespace

void ExpectWholeStatusFile(const DrivenUpdate& update, const Kill& kill) {
    static const std::set<std::string> states = {"authorized", "ready", "installing", "succeeded",
                                                 "failed"};
    // Raises what the JSON library has to say against the file.
    const std::optional<CollectedRecord> record = FindStatusRecord(update.job.jobDirectory);
    EXPECT_TRUE(record || kill.state.empty());
    if (record) {
        EXPECT_TRUE(states.contains(record->state)) << record->text;
        EXPECT_EQ(record->text, RecordText(record->state, record->message, record->exitCode));
    }
}

void AwaitOrphanedSetup(const UpdateScene& scene) {
    for (const std::filesystem::path& staging : scene.NewStagingDirectories()) {
        AwaitCondition("the orphaned setup program's end", [&] {
            return std::ranges::all_of(
                ListProcessesOf(staging / L"installer.exe"),
                [](const RunningProcess& setup) { return IsHeldUp(setup.id); });
        });
    }
}

void ExpectRecovery(const UpdateScene& scene) {
    for (const std::filesystem::path& staging : scene.NewStagingDirectories()) {
        if (PathExists(staging / L"install.log")) {
            const RecoveryPlaces places{scene.job.installDirectory, staging, kOwnProgram};
            EXPECT_EQ(FollowRecoveryPage("By hand", places), std::vector<std::string>());
            EXPECT_EQ(FollowRecoveryPage("The registered version", places),
                      std::vector<std::string>());
        }
    }
    ExpectNothingChanged(scene);
}

void ExpectNextUpdateSucceeds(UpdateScene& scene) {
    scene.OfferSetup(L"v2", L"2.0.0.0");
    UpdateJob job = scene.job;
    job.jobDirectory = scene.InWorkspace(L"下一个 任务");
    job.updater = PlaceUpdater(scene.InWorkspace(L"下一个 更新程序"));
    CreateDirectories(job.jobDirectory);

    DrivenUpdate next = StartDrivenUpdate(job);
    DriveUntil(next, "the next update's end",
               [&] { return HasEnded(next.run.standIn.process.get()); });

    ExpectQuietEnd(next.run, job.jobDirectory, RecordOf("succeeded"), 0);
    ExpectRestart(job.installDirectory, "2.0.0.0");
    EXPECT_EQ(FindInventoryDifferences(job.installDirectory), std::vector<std::string>());
    EXPECT_EQ(FindDifferences(UserData(), ReadUserData(job.installDirectory)),
              std::vector<std::string>());
}

}  // namespace updater
