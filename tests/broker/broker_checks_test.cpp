#include <gtest/gtest.h>

#include <span>

#include "broker/broker.h"
#include "broker/broker_world.h"
#include "fixtures/processes/failing_steps.h"
#include "fixtures/raised_errors.h"
#include "support/status_file.h"

namespace updater {
namespace {

constexpr char kMissingArgument[] = "Missing update argument";
constexpr char kWrongParent[] = "Update parent does not match installation directory";

TEST(BrokerChecks, RefuseAnElevatedBrokerBeforeAnyOptionIsRead) {
    BrokerWorld world;
    world.faults.elevated = true;
    world.arguments.clear();
    EXPECT_THAT(
        [&] { RunBroker(world.arguments); },
        RaisesError("Start the application without administrator privileges before updating"));
}

TEST(BrokerChecks, RequireJobDirectoryInstallDirectoryAndParent) {
    BrokerWorld world;
    const UpdaterArguments complete = world.arguments;
    for (const wchar_t* option : {kJobDirOption, kInstallDirOption, kParentPidOption}) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(option)));
        world.arguments = complete;
        world.arguments.erase(option);
        EXPECT_THAT([&] { RunBroker(world.arguments); }, RaisesError(kMissingArgument));
        world.arguments[option] = L"";
        EXPECT_THAT([&] { RunBroker(world.arguments); }, RaisesError(kMissingArgument));
    }
    EXPECT_FALSE(world.Did("open parent"));
}

TEST(BrokerChecks, RequireNoOptionThatOnlyTheWorkerReads) {
    BrokerWorld world;
    for (const wchar_t* option : {kInstallerOption, kVersionOption, kSha256Option, kSizeOption}) {
        world.arguments.erase(option);
    }
    world.LetWorkerEndWith(0);
    EXPECT_EQ(RunBroker(world.arguments), 0);
}

TEST(BrokerChecks, ReadTheDirectoriesBeforeTheParentsNumber) {
    BrokerWorld world;
    world.arguments[kParentPidOption] = L"abc";
    for (const wchar_t* option : {kJobDirOption, kInstallDirOption}) {
        const std::wstring value = world.arguments[option];
        world.arguments[option] = L"";
        EXPECT_THAT([&] { RunBroker(world.arguments); }, RaisesError(kMissingArgument));
        world.arguments[option] = value;
    }
    EXPECT_THAT([&] { RunBroker(world.arguments); }, RaisesMessage("invalid stoul argument"));
}

TEST(BrokerChecks, RefuseAParentNumberThatIsNone) {
    BrokerWorld world;
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
        world.arguments[kParentPidOption] = text;
        EXPECT_THAT([&] { RunBroker(world.arguments); }, RaisesMessage(message));
    }
}

TEST(BrokerChecks, AcceptWhatTheStandardConversionAcceptsAsParentNumber) {
    BrokerWorld world;
    world.faults.launchError = ERROR_CANCELLED;
    const std::wstring number = std::to_wstring(world.application.id);
    const std::wstring wrapped = std::to_wstring(0x1'0000'0000 - world.application.id);
    for (const std::wstring& text : {number + L"abc", number + L".5", L" \t" + number,
                                     L"+" + number, L"000" + number, L"-" + wrapped}) {
        SCOPED_TRACE(testing::PrintToString(text));
        world.arguments[kParentPidOption] = text;
        EXPECT_EQ(RunBroker(world.arguments), 2);
    }
}

TEST(BrokerChecks, RefuseAParentThatHasEnded) {
    BrokerWorld world;
    world.application.EndAndForget();
    EXPECT_THAT([&] { RunBroker(world.arguments); }, RaisesError(kWrongParent));
}

TEST(BrokerChecks, RefuseAParentOfAnotherProgram) {
    BrokerWorld world;
    world.arguments[kParentPidOption] = std::to_wstring(world.worker.id);
    EXPECT_THAT([&] { RunBroker(world.arguments); }, RaisesError(kWrongParent));
}

TEST(BrokerChecks, RefuseAParentOfAnotherInstallation) {
    BrokerWorld world;
    const StandInProcess stranger =
        StartStandInApplication(world.directory.path / L"other" / L"corvellan.exe", 1);
    world.arguments[kParentPidOption] = std::to_wstring(stranger.id);
    EXPECT_THAT([&] { RunBroker(world.arguments); }, RaisesError(kWrongParent));
}

TEST(BrokerChecks, RefuseAParentThatCannotBeOpened) {
    BrokerWorld world;
    world.faults.inaccessibleProcess = world.application.id;
    EXPECT_THAT([&] { RunBroker(world.arguments); }, RaisesError(kWrongParent));
    EXPECT_TRUE(world.Did("open parent"));
}

TEST(BrokerChecks, RefuseAParentWhoseImageCannotBeRead) {
    BrokerWorld world;
    world.faults.parentUnreadable = true;
    EXPECT_THAT([&] { RunBroker(world.arguments); },
                RaisesError("Cannot inspect application process"));
}

TEST(BrokerChecks, FindTheParentUnderAnotherSpellingOfItsDirectory) {
    BrokerWorld world;
    world.faults.launchError = ERROR_CANCELLED;
    for (const wchar_t* spelling :
         {L"\\\u7A0B\u5E8F app\\", L"/\u7A0B\u5E8F app/", L"\\\u7A0B\u5E8F APP",
          L"\\.\\\u7A0B\u5E8F app", L"\\\u7A0B\u5E8F app\\..\\\u7A0B\u5E8F app"}) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(spelling)));
        world.arguments[kInstallDirOption] = world.directory.path.native() + spelling;
        EXPECT_EQ(RunBroker(world.arguments), 2);
    }
}

TEST(BrokerChecks, RefuseASecondInstanceOfTheApplication) {
    BrokerWorld world;
    const StandInProcess second = StartWaiting(world.applicationPath);
    EXPECT_THAT([&] { RunBroker(world.arguments); },
                RaisesError("Another application instance is running; close it first"));
    EXPECT_FALSE(world.Did("create identity"));
}

TEST(BrokerChecks, AllowAnInstanceOfAnotherInstallationUnlessItCannotBeInspected) {
    BrokerWorld world;
    world.faults.launchError = ERROR_CANCELLED;
    const StandInProcess stranger =
        StartStandInApplication(world.directory.path / L"other" / L"corvellan.exe", 1);
    EXPECT_EQ(RunBroker(world.arguments), 2);

    world.faults.inaccessibleProcess = stranger.id;
    EXPECT_THAT([&] { RunBroker(world.arguments); },
                RaisesError("Another application instance is inaccessible; close it first"));
}

constexpr FailingStep<BrokerWorld> kFailingSteps[] = {
    {"Start the application without administrator privileges before updating",
     [](BrokerWorld& world) { world.faults.elevated = true; }},
    {kMissingArgument, [](BrokerWorld& world) { world.arguments.erase(kJobDirOption); }},
    {"invalid stoul argument",
     [](BrokerWorld& world) { world.arguments[kParentPidOption] = L"abc"; }},
    {"Cannot inspect application process",
     [](BrokerWorld& world) { world.faults.parentUnreadable = true; }},
    {"Cannot enumerate running applications",
     [](BrokerWorld& world) { world.faults.processListUnreadable = true; }},
    {"Cannot create update job identity",
     [](BrokerWorld& world) { world.faults.identityUnavailable = true; }},
    {"Cannot initialize update handshake",
     [](BrokerWorld& world) { world.faults.readyEventUnavailable = true; }},
    {"Cannot inspect application process",
     [](BrokerWorld& world) { world.faults.ownImageUnreadable = true; }},
    {"Cannot write update status",
     [](BrokerWorld& world) {
         world.faults.launchError = ERROR_CANCELLED;
         world.faults.unwritableState = kStateCancelled;
     }},
};

TEST(BrokerChecks, FailInTheirOrder) {
    ExpectFailuresInOrder<BrokerWorld>(
        kFailingSteps, [](const BrokerWorld& world) { RunBroker(world.arguments); });
}

TEST(BrokerChecks, StopEverythingElseWhenTheyFail) {
    for (const FailingStep<BrokerWorld>& step : std::span(kFailingSteps).first<5>()) {
        SCOPED_TRACE(step.message);
        BrokerWorld world;
        step.breakStep(world);
        EXPECT_THAT([&] { RunBroker(world.arguments); }, RaisesMessage(step.message));
        EXPECT_TRUE(world.events.empty());
        EXPECT_TRUE(world.launches.empty());
        EXPECT_TRUE(world.status.records.empty());
    }
}

TEST(BrokerSteps, OfASuccessfulUpdateFollowEachOther) {
    BrokerWorld world;
    world.LetWorkerEndWith(0);
    EXPECT_EQ(RunBroker(world.arguments), 0);
    EXPECT_EQ(world.actions,
              (std::vector<std::string>{"query elevation", "open parent", "query parent's image",
                                        "list processes", "create identity", "create ready event",
                                        "create commit event", "query own image", "launch worker",
                                        "write authorized", "write ready", "set commit event",
                                        "read worker's exit code", "start application"}));
}

TEST(BrokerSteps, OfAFailedUpdateEndWithTheErrorBoxAfterTheRestart) {
    BrokerWorld world;
    world.LetWorkerEndWith(1);
    EXPECT_EQ(RunBroker(world.arguments), 1);
    const std::vector<std::string> last(world.actions.end() - 5, world.actions.end());
    EXPECT_EQ(last, (std::vector<std::string>{"write ready", "set commit event",
                                              "read worker's exit code", "start application",
                                              "show error box"}));
}

}  // namespace
}  // namespace updater
