#include <gtest/gtest.h>

#include <optional>

#include "end_to_end/build_outputs.h"
#include "end_to_end/host_update.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
#include "end_to_end/window_text.h"
#include "fixtures/scoped_variable.h"
#include "support/file_system.h"

namespace updater {

namespace {

// Updates that the application itself starts, from its own window.
struct RequestedUpdate : UpdateTest {
    HostUpdate Request(const wchar_t* setupName, const std::string& version) {
        const std::filesystem::path feed = InWorkspace(L"更新 源");
        OfferUpdate(feed, SetupProgram(setupName), version);
        return StartHostUpdate(job.installDirectory, feed);
    }

    [[nodiscard]] std::string OutcomeToldAtRestart() const {
        const Application restarted = AwaitApplication(job.installDirectory);
        const std::optional<Session> session = FindSession(job.installDirectory, restarted);
        return session ? session->updateOutcome : std::string();
    }

    ScopedVariable userData{L"LOCALAPPDATA", InWorkspace(L"本地 数据").native()};
};

TEST_F(RequestedUpdate, EndsWithTheNewVersionTellingItsUser) {
    HostUpdate update = Request(L"v2", "2.0.0.0");
    AnswerPrompt(update.run);

    EXPECT_EQ(AwaitBroker(update.run), 0U);
    EXPECT_EQ(FindInventoryDifferences(job.installDirectory), std::vector<std::string>());
    EXPECT_EQ(OutcomeToldAtRestart(), "Updated to 2.0.0.0");
}

TEST_F(RequestedUpdate, EndsWithThePreviousVersionTellingItsUserWhatFailed) {
    HostUpdate update = Request(L"v2-empty-inventory", "2.0.0.0");
    AnswerPrompt(update.run);

    ExpectErrorBox(
        update.run, update.jobDirectory,
        RecordText("failed", "Installed program inventory is empty; previous program restored", 1));
    EXPECT_EQ(OutcomeToldAtRestart(),
              "The update failed and the previous program is in place: Installed program inventory "
              "is empty");
    ExpectNothingChanged(*this);
}

TEST_F(RequestedUpdate, LeavesTheApplicationOpenWhenItsUserCancelsDuringThePrompt) {
    HostUpdate update = Request(L"v2", "2.0.0.0");
    PressCancel(update.application);
    AwaitCondition("the cancel marker",
                   [&] { return PathExists(update.jobDirectory / L"cancel"); });
    AnswerPrompt(update.run);

    EXPECT_EQ(AwaitBroker(update.run), 2U);
    const std::vector<HWND> windows = ListWindows(update.application.id);
    ASSERT_EQ(windows.size(), 1U);
    AwaitCondition("the application to tell its user",
                   [&] { return DialogText(windows[0]) == L"The update was cancelled"; });
    ExpectNothingChanged(*this);
}

}  // namespace

}  // namespace updater
