// The three-minute limits in real time. The three updates run side by side, so that all of it takes
// little more than three minutes.

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <vector>

#include "elevation/consent.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/slow_limits.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
#include "fixtures/file_content.h"
#include "support/handle.h"

namespace updater {

namespace {

struct SlowUpdate : UpdateScene {
    std::uint64_t answerTime = 0;

    void Answer() {
        answerTime = SystemTime();
        SetEvent(answered.get());
    }
};

struct SlowUpdates {
    SlowUpdates();

    SlowUpdate neverReady;
    SlowUpdate neverExiting;
    SlowUpdate neverCommitted;
};

void BeginWithHelper(SlowUpdate& update, const wchar_t* consent) {
    update.job.consent = consent;
    update.AskForUpdate();
    update.Answer();
}

SlowUpdates::SlowUpdates() {
    BeginWithHelper(neverReady, kConsentHelperHangs);
    BeginWithHelper(neverExiting, kConsentHelperHangsReady);
    neverCommitted.AskForUpdate();
    neverCommitted.Answer();
    neverCommitted.AnswerPrompt();
    neverCommitted.AwaitWorker();
    WriteFileContent(neverCommitted.job.jobDirectory / L"cancel", "");
}

// Begun by the first test, ended with the program.
SlowUpdates& Updates() {
    static SlowUpdates updates;
    return updates;
}

TEST(SlowLimits, TheBrokerWaitsThreeMinutesForTheWorkersReadiness) {
    const SlowUpdate& scene = Updates().neverReady;

    EXPECT_EQ(AwaitEnd(scene.standIn.process.get(), "the broker's end"), 1U);

    ExpectThreeMinutesAtLeast(TimeUntilEnd(scene.answerTime, scene.standIn.process.get()));
    EXPECT_EQ(LastRecordText(scene.job.jobDirectory),
              RecordText("failed", "Upgrade helper did not become ready", 1));
    EXPECT_FALSE(HasEnded(scene.application.process.get()));
}

TEST(SlowLimits, TheBrokerWaitsThreeMinutesForTheApplicationsExit) {
    const SlowUpdate& scene = Updates().neverExiting;

    EXPECT_EQ(AwaitEnd(scene.standIn.process.get(), "the broker's end"), 2U);

    ExpectThreeMinutesAtLeast(TimeUntilEnd(scene.answerTime, scene.standIn.process.get()));
    EXPECT_EQ(LastRecordText(scene.job.jobDirectory),
              RecordText("cancelled", "Application did not exit; update cancelled", 2));
    EXPECT_FALSE(HasEnded(scene.application.process.get()));
}

TEST(SlowLimits, TheWorkerWaitsThreeMinutesForTheCommit) {
    SlowUpdate& scene = Updates().neverCommitted;

    EXPECT_EQ(scene.AwaitBroker(), 2U);
    EXPECT_EQ(AwaitEnd(scene.worker.get(), "the worker's end"), 2U);

    ExpectThreeMinutesAtLeast(TimeUntilEnd(scene.answerTime, scene.worker.get()));
    EXPECT_EQ(LastRecordText(scene.job.jobDirectory),
              RecordText("cancelled", "Application remained open; installation cancelled", 0));
    EXPECT_EQ(scene.NewStagingDirectories(), std::vector<std::filesystem::path>());
    EXPECT_FALSE(HasEnded(scene.application.process.get()));
}

}  // namespace

}  // namespace updater
