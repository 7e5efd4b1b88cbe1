// The three-minute limits in real time. The three updates run side by side, so that all of it takes
// little more than three minutes.

#include <gtest/gtest.h>

#include <chrono>

#include "elevation/consent.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
#include "fixtures/file_content.h"
#include "support/handle.h"

namespace updater {

namespace {

constexpr std::chrono::seconds kSlowPatience{240};

constexpr double kLimit = 180;
// What else happens in the measured time.
constexpr double kTolerance = 5;

struct SlowUpdates {
    SlowUpdates();

    UpdateScene neverReady;
    UpdateScene neverExiting;
    UpdateScene neverCommitted;
    UniqueHandle uncommittedWorker;
};

void BeginWithHelper(UpdateScene& scene, const wchar_t* consent) {
    scene.job.consent = consent;
    scene.AskForUpdate();
    SetEvent(scene.run.answered.get());
}

SlowUpdates::SlowUpdates() {
    BeginWithHelper(neverReady, kConsentHelperHangs);
    BeginWithHelper(neverExiting, kConsentHelperHangsReady);
    neverCommitted.BeginUpdate();
    uncommittedWorker = OpenWorker(neverCommitted.run);
    WriteFileContent(neverCommitted.job.jobDirectory / L"cancel", "");
}

// Begun by the first test, ended with the program.
SlowUpdates& Updates() {
    static SlowUpdates updates;
    return updates;
}

TEST(SlowLimits, TheBrokerWaitsThreeMinutesForTheWorkersReadiness) {
    const UpdateScene& scene = Updates().neverReady;

    EXPECT_EQ(AwaitEnd(scene.run.standIn.process.get(), "the broker's end", kSlowPatience), 1U);

    EXPECT_NEAR(RunningTime(scene.run.standIn.process.get()), kLimit, kTolerance);
    EXPECT_EQ(LastRecordText(scene.job.jobDirectory),
              RecordText("failed", "Upgrade helper did not become ready", 1));
    EXPECT_FALSE(HasEnded(scene.application.process.get()));
}

TEST(SlowLimits, TheBrokerWaitsThreeMinutesForTheApplicationsExit) {
    const UpdateScene& scene = Updates().neverExiting;

    EXPECT_EQ(AwaitEnd(scene.run.standIn.process.get(), "the broker's end", kSlowPatience), 2U);

    EXPECT_NEAR(RunningTime(scene.run.standIn.process.get()), kLimit, kTolerance);
    EXPECT_EQ(LastRecordText(scene.job.jobDirectory),
              RecordText("cancelled", "Application did not exit; update cancelled", 2));
    EXPECT_FALSE(HasEnded(scene.application.process.get()));
}

TEST(SlowLimits, TheWorkerWaitsThreeMinutesForTheGoAhead) {
    const UpdateScene& scene = Updates().neverCommitted;

    EXPECT_EQ(AwaitBroker(scene.run), 2U);
    EXPECT_EQ(AwaitEnd(Updates().uncommittedWorker.get(), "the worker's end", kSlowPatience), 2U);

    EXPECT_NEAR(RunningTime(Updates().uncommittedWorker.get()), kLimit, kTolerance);
    EXPECT_EQ(LastRecordText(scene.job.jobDirectory),
              RecordText("cancelled", "Application remained open; installation cancelled", 0));
    EXPECT_EQ(scene.NewStagingDirectories(), std::vector<std::filesystem::path>());
    EXPECT_FALSE(HasEnded(scene.application.process.get()));
}

}  // namespace

}  // namespace updater
