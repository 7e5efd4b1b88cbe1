// The worker's three-minute wait for a broker that is gone, in real time. The other tests of
// interruptions end such a worker once they have seen that it waits.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "end_to_end/running_processes.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
#include "interruptions/aftermath.h"
#include "interruptions/killed_update.h"

namespace updater {

namespace {

constexpr std::chrono::seconds kSlowPatience{240};

constexpr double kLimit = 180;
// What else happens in the measured time.
constexpr double kTolerance = 5;

TEST(SlowSurvivor, AWorkerWithoutItsBrokerGivesUpAfterThreeMinutes) {
    KilledUpdate killed;
    ASSERT_TRUE(killed.Happens(Victim::Broker, [](const DrivenUpdate& update) {
        return update.worker && HasRecord(update, "ready");
    }));

    EXPECT_EQ(AwaitEnd(killed.update.run.helper.get(), "the worker's end", kSlowPatience), 2U);

    EXPECT_NEAR(RunningTime(killed.update.worker.get()), kLimit, kTolerance);
    EXPECT_EQ(LastRecordText(killed.job.jobDirectory),
              RecordText("cancelled", "Application remained open; installation cancelled", 0));
    EXPECT_EQ(killed.NewStagingDirectories(), std::vector<std::filesystem::path>());
    ExpectNothingChanged(killed);
    CloseApplication(killed.update.application);
    ExpectNextUpdateSucceeds(killed);
}

}  // namespace

}  // namespace updater
