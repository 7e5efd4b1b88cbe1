// The worker's three-minute wait for a broker that is gone, in real time. The other tests of
// interruptions end such a worker once they have seen that it waits.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "end_to_end/running_processes.h"
#include "end_to_end/slow_limits.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
#include "interruptions/aftermath.h"
#include "interruptions/killed_update.h"

namespace updater {

namespace {

TEST(SlowSurvivor, AWorkerWithoutItsBrokerGivesUpAfterThreeMinutes) {
    KilledUpdate killed;
    ASSERT_TRUE(killed.Happens(Victim::Broker,
                               [&killed] { return killed.worker && killed.HasState("ready"); }));

    EXPECT_EQ(AwaitEnd(killed.helper.get(), "the worker's end"), 2U);

    ExpectThreeMinutesAtLeast(RunningTime(killed.worker.get()));
    EXPECT_EQ(LastRecordText(killed.job.jobDirectory),
              RecordText("cancelled", "Application remained open; installation cancelled", 0));
    EXPECT_EQ(killed.NewStagingDirectories(), std::vector<std::filesystem::path>());
    ExpectNothingChanged(killed);
    CloseApplication(killed.application);
    ExpectNextUpdateSucceeds(killed);
}

}  // namespace

}  // namespace updater
