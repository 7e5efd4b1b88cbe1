#include <gtest/gtest.h>

#include <span>

#include "broker/broker.h"
#include "fixtures/application_names.h"
#include "fixtures/processes/failing_steps.h"
#include "fixtures/raised_errors.h"
#include "fixtures/scenes/broker_scene.h"
#include "support/status_file.h"

namespace updater {
namespace {

constexpr char kMissingArgument[] = "Missing update argument";
constexpr char kWrongParent[] = "Update parent does not match installation directory";

TEST(BrokerChecks, RefuseAnElevatedBrokerBeforeAnyOptionIsRead) {
    BrokerScene scene;
    scene.rights.held = Rights::Elevated;
    scene.arguments.clear();
    EXPECT_THAT(
        [&] { RunBroker(scene.arguments); },
        RaisesError("Start the application without administrator privileges before updating"));
}

TEST(BrokerChecks, RequireJobDirectoryInstallDirectoryAndParent) {
    BrokerScene scene;
    const UpdaterArguments complete = scene.arguments;
    for (const wchar_t* option : {kJobDirOption, kInstallDirOption, kParentPidOption}) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(option)));
        scene.arguments = complete;
        scene.arguments.erase(option);
        EXPECT_THAT([&] { RunBroker(scene.arguments); }, RaisesError(kMissingArgument));
        scene.arguments[option] = L"";
        EXPECT_THAT([&] { RunBroker(scene.arguments); }, RaisesError(kMissingArgument));
    }
    EXPECT_FALSE(scene.Did("open parent"));
}

TEST(BrokerChecks, RequireNoOptionThatOnlyTheWorkerReads) {
    BrokerScene scene;
    for (const wchar_t* option : {kInstallerOption, kVersionOption, kSha256Option, kSizeOption}) {
        scene.arguments.erase(option);
    }
    scene.LetWorkerEndWith(0);
    EXPECT_EQ(RunBroker(scene.arguments), 0);
}

TEST(BrokerChecks, ReadTheDirectoriesBeforeTheParentsNumber) {
    BrokerScene scene;
    scene.arguments[kParentPidOption] = L"abc";
    for (const wchar_t* option : {kJobDirOption, kInstallDirOption}) {
        const std::wstring value = scene.arguments[option];
        scene.arguments[option] = L"";
        EXPECT_THAT([&] { RunBroker(scene.arguments); }, RaisesError(kMissingArgument));
        scene.arguments[option] = value;
    }
    EXPECT_THAT([&] { RunBroker(scene.arguments); }, RaisesMessage("invalid stoul argument"));
}

TEST(BrokerChecks, RefuseAParentNumberThatIsNone) {
    BrokerScene scene;
    const struct {
        const wchar_t* text;
        const char* message;
    } cases[] = {
        {L"abc", "invalid stoul argument"},
        {L"+", "invalid stoul argument"},
        {L"-", "invalid stoul argument"},
        {L" ", "invalid stoul argument"},
        {L"- 5", "invalid stoul argument"},
        {L"4294967296", "stoul argument out of range"},
        {L"-4294967296", "stoul argument out of range"},
        {L"99999999999999999999999", "stoul argument out of range"},
    };
    for (const auto& [text, message] : cases) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(text)));
        scene.arguments[kParentPidOption] = text;
        EXPECT_THAT([&] { RunBroker(scene.arguments); }, RaisesMessage(message));
    }
}

TEST(BrokerChecks, AcceptWhatTheStandardConversionAcceptsAsParentNumber) {
    BrokerScene scene;
    scene.faults.launchError = ERROR_CANCELLED;
    const std::wstring number = std::to_wstring(scene.application.id);
    const std::wstring wrapped = std::to_wstring(0x1'0000'0000 - scene.application.id);
    for (const std::wstring& text : {number + L"abc", number + L".5", L" \t" + number,
                                     L"+" + number, L"000" + number, L"-" + wrapped}) {
        SCOPED_TRACE(testing::PrintToString(text));
        scene.arguments[kParentPidOption] = text;
        EXPECT_EQ(RunBroker(scene.arguments), 2);
    }
}

TEST(BrokerChecks, RefuseAParentThatHasEnded) {
    BrokerScene scene;
    scene.application.EndAndForget();
    EXPECT_THAT([&] { RunBroker(scene.arguments); }, RaisesError(kWrongParent));
}

// Its process is there as long as somebody has it open, and Windows may tell its image or not.
TEST(BrokerChecks, TakeAParentThatHasEndedForWhatItsImageSays) {
    BrokerScene scene;
    scene.LetWorkerEndWith(0);
    scene.application.End();
    EXPECT_EQ(RunBroker(scene.arguments), 0);
    EXPECT_EQ(scene.status.records.back().state, kStateReady);

    scene.faults.parentUnreadable = true;
    EXPECT_THAT([&] { RunBroker(scene.arguments); },
                RaisesError("Cannot inspect application process"));
    EXPECT_EQ(scene.launches.size(), 1U);
}

TEST(BrokerChecks, RefuseAParentOfAnotherProgram) {
    BrokerScene scene;
    scene.arguments[kParentPidOption] = std::to_wstring(scene.worker.id);
    EXPECT_THAT([&] { RunBroker(scene.arguments); }, RaisesError(kWrongParent));
}

TEST(BrokerChecks, RefuseAParentOfAnotherInstallation) {
    BrokerScene scene;
    const StandInProcess stranger =
        StartStandInApplication(scene.directory.path / L"other" / kExecutableName, 1);
    scene.arguments[kParentPidOption] = std::to_wstring(stranger.id);
    EXPECT_THAT([&] { RunBroker(scene.arguments); }, RaisesError(kWrongParent));
}

TEST(BrokerChecks, RefuseAParentThatCannotBeOpened) {
    BrokerScene scene;
    scene.faults.inaccessibleProcess = scene.application.id;
    EXPECT_THAT([&] { RunBroker(scene.arguments); }, RaisesError(kWrongParent));
    EXPECT_TRUE(scene.Did("open parent"));
}

TEST(BrokerChecks, RefuseAParentWhoseImageCannotBeRead) {
    BrokerScene scene;
    scene.faults.parentUnreadable = true;
    EXPECT_THAT([&] { RunBroker(scene.arguments); },
                RaisesError("Cannot inspect application process"));
}

TEST(BrokerChecks, FindTheParentUnderAnotherSpellingOfItsDirectory) {
    BrokerScene scene;
    scene.faults.launchError = ERROR_CANCELLED;
    for (const wchar_t* spelling :
         {L"\\\u7A0B\u5E8F app\\", L"/\u7A0B\u5E8F app/", L"\\\u7A0B\u5E8F APP",
          L"\\.\\\u7A0B\u5E8F app", L"\\\u7A0B\u5E8F app\\..\\\u7A0B\u5E8F app"}) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(spelling)));
        scene.arguments[kInstallDirOption] = scene.directory.path.native() + spelling;
        EXPECT_EQ(RunBroker(scene.arguments), 2);
    }
}

TEST(BrokerChecks, RefuseASecondInstanceOfTheApplication) {
    BrokerScene scene;
    const StandInProcess second = StartWaiting(scene.applicationPath);
    EXPECT_THAT([&] { RunBroker(scene.arguments); },
                RaisesError("Another application instance is running; close it first"));
    EXPECT_FALSE(scene.Did("create identity"));
}

TEST(BrokerChecks, AllowAnInstanceOfAnotherInstallationUnlessItCannotBeInspected) {
    BrokerScene scene;
    scene.faults.launchError = ERROR_CANCELLED;
    const StandInProcess stranger =
        StartStandInApplication(scene.directory.path / L"other" / kExecutableName, 1);
    EXPECT_EQ(RunBroker(scene.arguments), 2);

    scene.faults.inaccessibleProcess = stranger.id;
    EXPECT_THAT([&] { RunBroker(scene.arguments); },
                RaisesError("Another application instance is inaccessible; close it first"));
}

constexpr FailingStep<BrokerScene> kFailingSteps[] = {
    {"Start the application without administrator privileges before updating",
     [](BrokerScene& scene) { scene.rights.held = Rights::Elevated; }},
    {kMissingArgument, [](BrokerScene& scene) { scene.arguments.erase(kJobDirOption); }},
    {"invalid stoul argument",
     [](BrokerScene& scene) { scene.arguments[kParentPidOption] = L"abc"; }},
    {"Cannot inspect application process",
     [](BrokerScene& scene) { scene.faults.parentUnreadable = true; }},
    {"Cannot enumerate running applications",
     [](BrokerScene& scene) { scene.faults.unreadableProcessLists = {1}; }},
    {"Cannot create update job identity",
     [](BrokerScene& scene) { scene.faults.identityUnavailable = true; }},
    {"Cannot initialize update handshake",
     [](BrokerScene& scene) { scene.faults.readyEventUnavailable = true; }},
    {"Cannot inspect application process",
     [](BrokerScene& scene) { scene.faults.ownImageUnreadable = true; }},
    {"Cannot write update status",
     [](BrokerScene& scene) {
         scene.faults.launchError = ERROR_CANCELLED;
         scene.faults.unwritableStates = {kStateCancelled};
     }},
};

TEST(BrokerChecks, FailInTheirOrder) {
    ExpectFailuresInOrder<BrokerScene>(
        kFailingSteps, [](const BrokerScene& scene) { RunBroker(scene.arguments); });
}

TEST(BrokerChecks, StopEverythingElseWhenTheyFail) {
    for (const FailingStep<BrokerScene>& step : std::span(kFailingSteps).first<5>()) {
        SCOPED_TRACE(step.message);
        BrokerScene scene;
        step.breakStep(scene);
        EXPECT_THAT([&] { RunBroker(scene.arguments); }, RaisesMessage(step.message));
        EXPECT_TRUE(scene.events.empty());
        EXPECT_TRUE(scene.launches.empty());
        EXPECT_TRUE(scene.status.records.empty());
    }
}

TEST(BrokerSteps, OfASuccessfulUpdateFollowEachOther) {
    BrokerScene scene;
    scene.LetWorkerEndWith(0);
    EXPECT_EQ(RunBroker(scene.arguments), 0);
    EXPECT_EQ(scene.actions,
              (std::vector<std::string>{"query elevation", "open parent", "query parent's image",
                                        "list processes", "create identity", "create ready event",
                                        "create commit event", "query own image", "launch worker",
                                        "write authorized", "write ready", "set commit event",
                                        "read worker's exit code", "start application"}));
}

TEST(BrokerSteps, OfAFailedUpdateEndWithTheErrorBoxAfterTheRestart) {
    BrokerScene scene;
    scene.LetWorkerEndWith(1);
    EXPECT_EQ(RunBroker(scene.arguments), 1);
    const std::vector<std::string> last(scene.actions.end() - 5, scene.actions.end());
    EXPECT_EQ(last, (std::vector<std::string>{"write ready", "set commit event",
                                              "read worker's exit code", "start application",
                                              "show error box"}));
}

}  // namespace
}  // namespace updater
