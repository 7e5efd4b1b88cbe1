#include <gtest/gtest.h>

#include <optional>

#include "end_to_end/build_outputs.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
#include "end_to_end/window_text.h"
#include "fixtures/scoped_variable.h"
#include "support/file_system.h"

namespace updater {

namespace {

// Updates that the application itself starts, from its own window.
struct RequestedUpdate : UpdateTest {
    void Request(const wchar_t* setupName, const std::string& version) {
        const std::filesystem::path feed = InWorkspace(L"更新 源");
        OfferInFeed(feed, SetupProgram(setupName), version);
        RequestUpdate(*this, feed);
    }

    [[nodiscard]] std::string OutcomeToldAtRestart() const {
        const Application restarted = AwaitApplication(job.installDirectory);
        const std::optional<Session> session = FindSession(job.installDirectory, restarted);
        return session ? session->updateOutcome : std::string();
    }

    ScopedVariable userData{L"LOCALAPPDATA", InWorkspace(L"本地 数据").native()};
};

TEST_F(RequestedUpdate, EndsWithTheNewVersionTellingItsUser) {
    Request(L"v2", "2.0.0.0");
    AnswerPrompt();

    EXPECT_EQ(AwaitBroker(), 0U);
    EXPECT_EQ(FindInventoryDifferences(job.installDirectory), std::vector<std::string>());
    EXPECT_EQ(OutcomeToldAtRestart(), "Updated to 2.0.0.0");
}

TEST_F(RequestedUpdate, EndsWithThePreviousVersionTellingItsUserWhatFailed) {
    Request(L"v2-empty-inventory", "2.0.0.0");
    AnswerPrompt();

    ExpectErrorBox(
        *this,
        RecordText("failed", "Installed program inventory is empty; previous program restored", 1));
    EXPECT_EQ(OutcomeToldAtRestart(),
              "The update failed and the previous program is in place: Installed program inventory "
              "is empty");
    ExpectNothingChanged(*this);
}

TEST_F(RequestedUpdate, LeavesTheApplicationOpenWhenItsUserCancelsDuringThePrompt) {
    Request(L"v2", "2.0.0.0");
    PressCancel(application);
    AwaitCondition("the cancel marker", [&] { return PathExists(job.jobDirectory / L"cancel"); });
    AnswerPrompt();

    EXPECT_EQ(AwaitBroker(), 2U);
    const std::vector<HWND> windows = ListWindows(application.id);
    ASSERT_EQ(windows.size(), 1U);
    AwaitCondition("the application to tell its user",
                   [&] { return DialogText(windows[0]) == L"The update was cancelled"; });
    ExpectNothingChanged(*this);
}

}  // namespace

}  // namespace updater
