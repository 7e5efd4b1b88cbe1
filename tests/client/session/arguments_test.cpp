#include <functional>

#include "client/session/session_scene.h"
#include "fixtures/open_handles.h"

namespace updater {
namespace {

using InterfaceArgument = SessionScene;

TEST_F(InterfaceArgument, MustBeThere) {
    Open();
    const std::vector<std::pair<std::function<AppUpdateResult()>, std::string>> calls = {
        {[&] { return AppUpdateCheck(nullptr, &offer, &report); }, "There is no session"},
        {[&] { return AppUpdateDownload(nullptr, nullptr, nullptr, &report); },
         "There is no session"},
        {[&] { return AppUpdateStart(nullptr, &report); }, "There is no session"},
        {[&] { return AppUpdateWait(nullptr, 0, &state, &report); }, "There is no session"},
        {[&] { return AppUpdateTakeOutcome(nullptr, &outcome, &report); }, "There is no session"},
        {[&] { return AppUpdateTidyUp(nullptr, &report); }, "There is no session"},
        {[&] { return AppUpdateCheck(session.get(), nullptr, &report); },
         "There is no place for the offer"},
        {[&] { return AppUpdateWait(session.get(), 0, nullptr, &report); },
         "There is no place for the state"},
        {[&] { return AppUpdateTakeOutcome(session.get(), nullptr, &report); },
         "There is no place for the outcome"},
    };
    for (const auto& [call, sentence] : calls) {
        EXPECT_EQ(call(), APP_UPDATE_INVALID_ARGUMENT);
        EXPECT_EQ(report.result, APP_UPDATE_INVALID_ARGUMENT);
        EXPECT_EQ(Sentence(), sentence);
    }
    AppUpdateCancel(nullptr);
    AppUpdateClose(nullptr);
}

TEST_F(InterfaceArgument, MustHaveAKnownSize) {
    Publish(feed);
    Open();
    for (const int difference : {-4, 4}) {
        offer.size =
            static_cast<std::uint32_t>(sizeof(offer)) + static_cast<std::uint32_t>(difference);
        EXPECT_EQ(Check(), APP_UPDATE_INVALID_ARGUMENT);
        EXPECT_EQ(Sentence(), "The offer has a size of no version of the header");
        outcome.size =
            static_cast<std::uint32_t>(sizeof(outcome)) + static_cast<std::uint32_t>(difference);
        EXPECT_EQ(TakeOutcome(), APP_UPDATE_INVALID_ARGUMENT);
        EXPECT_EQ(Sentence(), "The outcome has a size of no version of the header");
    }
    EXPECT_TRUE(requests.empty());
}

TEST_F(InterfaceArgument, IsLeftAloneWhenAReportHasAnotherSize) {
    Publish(feed);
    Open();
    report = {};
    report.size = sizeof(report) - 2;
    report.result = 99;
    offer.size = sizeof(offer);
    EXPECT_EQ(Check(), APP_UPDATE_INVALID_ARGUMENT);
    EXPECT_EQ(report.result, 99);
    EXPECT_STREQ(report.sentence, L"");
    report.size = sizeof(report) + 2;
    EXPECT_EQ(Check(), APP_UPDATE_INVALID_ARGUMENT);
    EXPECT_EQ(report.result, 99);
    EXPECT_TRUE(requests.empty());
}

TEST_F(InterfaceArgument, MayLackAReport) {
    Publish(feed);
    Open();
    EXPECT_EQ(AppUpdateCheck(session.get(), &offer, nullptr), APP_UPDATE_OK);
    EXPECT_EQ(AppUpdateStart(session.get(), nullptr), APP_UPDATE_WRONG_ORDER);
}

TEST_F(InterfaceArgument, SizesAreThoseOfTheHeadersFirstVersion) {
    EXPECT_EQ(sizeof(AppUpdateReport), 1036U);
    EXPECT_EQ(sizeof(AppUpdateSettings), 72U);
    EXPECT_EQ(sizeof(AppUpdateOffer), 32U);
    EXPECT_EQ(sizeof(AppUpdateOutcome), 2104U);
}

TEST_F(InterfaceArgument, SessionLeavesNoHandleOpen) {
    ExpectNoHandleLeft([this] {
        OpenAndDownload();
        session.reset();
    });
}

TEST_F(InterfaceArgument, ForeignExceptionsStayWithin) {
    Open();
    TheServer().fetch = [](const HttpsRequest&, const HttpsReceiver&) { throw 1; };
    EXPECT_EQ(Check(), APP_UPDATE_SYSTEM_ERROR);
    EXPECT_EQ(Sentence(), "A failure of an unknown kind");
    TheServer().fetch = [](const HttpsRequest&, const HttpsReceiver&) {
        throw std::runtime_error("\xE4\xBD\xA0");
    };
    EXPECT_EQ(Check(), APP_UPDATE_SYSTEM_ERROR);
    EXPECT_STREQ(report.sentence, L"\u4F60");
    EXPECT_EQ(report.systemError, 0U);
    TheServer().fetch = [](const HttpsRequest&, const HttpsReceiver&) {
        throw std::system_error(5, std::system_category(), "x");
    };
    EXPECT_EQ(Check(), APP_UPDATE_SYSTEM_ERROR);
    EXPECT_EQ(report.systemError, 5U);
    EXPECT_EQ(Sentence(), "The system refused an operation");
    TheServer().fetch = [](const HttpsRequest&, const HttpsReceiver&) {
        throw std::filesystem::filesystem_error(
            "x", L"C:\\a", std::error_code(ERROR_DISK_FULL, std::system_category()));
    };
    EXPECT_EQ(Check(), APP_UPDATE_DISK_FULL);
    EXPECT_EQ(Sentence(), "A file operation failed: C:\\a");
}

}  // namespace
}  // namespace updater
