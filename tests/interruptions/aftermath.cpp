#include "interruptions/aftermath.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <set>

#include "end_to_end/running_processes.h"
#include "end_to_end/setup_gate.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
#include "interruptions/recovery_by_hand.h"
#include "support/file_system.h"

namespace updater {

namespace {

// Its capitals are not those of a program file, so it is the user's.
constexpr wchar_t kOwnProgram[] = L"Setup.EXE";

}  // namespace

void ExpectWholeStatusFile(const UpdateScene& update, const Kill& kill) {
    static const std::set<std::string> states = {"authorized", "ready", "installing", "succeeded",
                                                 "failed"};
    // Raises what the JSON library has to say against the file.
    const std::optional<StatusRecord> record = FindLastRecord(update.job.jobDirectory);
    EXPECT_TRUE(record || kill.state.empty());
    if (record) {
        EXPECT_TRUE(states.contains(record->state)) << *record;
        EXPECT_EQ(LastRecordText(update.job.jobDirectory),
                  RecordText(record->state, record->message, record->exitCode));
    }
}

void AwaitOrphanedSetup(const UpdateScene& update) {
    AwaitCondition("the orphaned setup program's end", [&] {
        return std::ranges::all_of(ListSetups(update),
                                   [](const RunningProcess& setup) { return IsHeldUp(setup.id); });
    });
}

bool HasUnbegunSetup(const UpdateScene& update) {
    return std::ranges::any_of(ListSetups(update),
                               [](const RunningProcess& setup) { return IsHeldUp(setup.id); });
}

void ExpectRecovery(const UpdateScene& update) {
    for (const std::filesystem::path& staging : update.NewStagingDirectories()) {
        if (PathExists(staging / L"install.log")) {
            const RecoveryPlaces places{update.job.installDirectory, staging, kOwnProgram};
            EXPECT_EQ(FollowRecoveryPage("By hand", places), std::vector<std::string>());
            EXPECT_EQ(FollowRecoveryPage("The registered version", places),
                      std::vector<std::string>());
        }
    }
    ExpectNothingChanged(update);
}

void ExpectNextUpdateSucceeds(UpdateScene& update) {
    update.OfferSetup(L"v2", L"2.0.0.0");
    WholeUpdate next(update.job);
    next.job.jobDirectory = update.InWorkspace(L"下一个 任务");
    next.job.updater = PlaceUpdater(update.InWorkspace(L"下一个 更新程序"));
    CreateDirectories(next.job.jobDirectory);

    next.CarryOutUpdate();

    ExpectQuietEnd(next, RecordOf("succeeded"), 0);
    ExpectRestart(next.job.installDirectory, "2.0.0.0");
    ExpectVersion2(update);
}

}  // namespace updater
