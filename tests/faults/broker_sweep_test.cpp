#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "faults/swept_broker.h"
#include "fixtures/updater_box.h"
#include "support/text_conversion.h"

namespace updater::faults {
namespace {

constexpr char kAuthorized[] = "authorized, \"Administrator authorization accepted\", 0";
constexpr char kReady[] = "ready, \"Authorized helper is waiting for application exit\", 0";
std::string Heading() {
    return WideToUtf8(kUpdaterBoxHeading);
}

Outcome Untouched() {
    return {{kEnd, "uncaught"}, {kStatus, "none"},   {kCommitted, "no"},
            {kRestarted, "no"}, {kErrorBox, "none"}, {kOpenFiles, ""}};
}

Outcome Ended(const std::string& end, const std::string& status) {
    Outcome outcome = Untouched();
    outcome[kEnd] = end;
    outcome[kStatus] = status;
    return outcome;
}

Outcome NeverReady() {
    return Ended("exit code 1", StatusText("failed", "Upgrade helper did not become ready", 1));
}

Outcome Declined() {
    return Ended("exit code 2",
                 StatusText("cancelled", "Administrator authorization cancelled", 1223));
}

Outcome StayedOpen() {
    return Ended("exit code 2",
                 StatusText("cancelled", "Application did not exit; update cancelled", 2));
}

// The box shows the worker's record as it stands in the file, and where that is.
std::string ErrorBox(const SweptBroker& scene, const std::string& state) {
    return Heading() + R"({"state":")" + state + R"(","message":")" + kWorkerMessage +
           R"(","exitCode":1})" + "\n\n" + WideToUtf8(scene.jobDirectory.native());
}

Outcome WorkerFailed(const SweptBroker& scene) {
    Outcome outcome = Ended("exit code 3", StatusText("failed", kWorkerMessage, 1));
    outcome[kCommitted] = "yes";
    outcome[kRestarted] = "yes";
    outcome[kErrorBox] = ErrorBox(scene, "failed");
    return outcome;
}

Outcome RaisedInBroker(const Fault& fault, const std::string& message) {
    Outcome outcome = Ended("exit code 1", StatusText("failed", message, 1));
    if (fault.FailedCall().function == "CreateProcessW") {
        outcome[kCommitted] = "yes";
    }
    return outcome;
}

// A worker that was ready has written its record.
void SeeNoReadiness(Outcome& outcome, const Fault& /*fault*/) {
    outcome = outcome == NeverReady() || outcome == Declined() ? NeverReady()
                                                               : Ended("exit code 1", kAuthorized);
}

// The shell's three failures.
void FailLaunch(Outcome& outcome, const Fault& fault) {
    if (fault.failure.kind == FailureKind::WithoutProcess) {
        SeeNoReadiness(outcome, fault);
    } else if (fault.failure.error == ERROR_CANCELLED) {
        outcome = Declined();
    } else {
        outcome = Ended("exit code 1", StatusText("failed", "Authorization failed", 5));
    }
}

// What stands in the box instead of the record.
void EmptyReport(Outcome& outcome, const Fault& /*fault*/) {
    std::string& text = outcome[kErrorBox];
    const std::size_t end = text.find("\n\n");
    const std::size_t begin = Heading().size();
    text.erase(begin, end - begin);
}

// The worker is never told to go on.
void WorkerGivesUp(Outcome& outcome, const Fault& /*fault*/) {
    outcome[kCommitted] = "no";
    outcome[kEnd] = "exit code 2";
    outcome[kStatus] = StatusText("cancelled", kWorkerMessage, 1);
    outcome[kErrorBox].replace(outcome[kErrorBox].find("failed"), 6, "cancelled");
}

// The worker still runs when its exit code is read, and has written nothing.
void WorkerGoesOn(Outcome& outcome, const Fault& /*fault*/) {
    outcome[kEnd] = "exit code 259";
    outcome[kStatus] = kReady;
    outcome[kErrorBox] = kAnything;
}

constexpr auto kBrokerRules = std::to_array<Rule>({
    {"OpenProcess", "OpenProcessOf", L"",
     Raises("Update parent does not match installation directory")},
    {"CreateEventW", "", L"", Raises("Cannot initialize update handshake")},
    {"ShellExecuteExW", "", L"", Changes(FailLaunch)},
    {"WaitForMultipleObjects", "", L"", Changes(SeeNoReadiness)},

    // The deadline moves with the clock that it is taken from; later, the jump passes it.
    {"GetTickCount64", "", L"", kNothing, Turn::First},
    {"GetTickCount64", "", L"",
     Changes([](Outcome& outcome, const Fault&) { outcome = StayedOpen(); })},
    // Only a satisfied wait counts: the worker and the application are taken to be running.
    {"WaitForSingleObject", "AwaitApplicationExit", L"", kNothing},

    {"SetEvent", "", L"", Changes(WorkerGivesUp)},
    {"WaitForSingleObject", "AwaitExitCode", L"", Changes(WorkerGoesOn)},
    {"GetExitCodeProcess", "", L"",
     Changes([](Outcome& outcome, const Fault&) { outcome[kEnd] = "exit code 1"; })},

    {"CreateFileW", "ReadStatusReport", L"", Changes(EmptyReport)},
    {"ReadFile", "ReadStatusReport", L"", Changes(EmptyReport)},
    {"MultiByteToWideChar", "ReadStatusReport", L"", Changes(EmptyReport), Turn::First},
    // The text then ends where the record should begin.
    {"MultiByteToWideChar", "ReadStatusReport", L"",
     Changes([](Outcome& outcome, const Fault&) { outcome[kErrorBox] = Heading(); })},
    {"MessageBoxW", "", L"",
     Changes([](Outcome& outcome, const Fault&) { outcome[kErrorBox] = "none"; })},
});

// The worker's record follows on the broker's.
constexpr Rule kRecordIsReplaced = {"WriteFile", "WriteUpdateStatus", L"", kNothing};

void SweepBroker(const char* name, const SweptBroker& scene, const BrokerCase& met,
                 const Outcome& undisturbed) {
    std::vector<Rule> rules(kBrokerRules.begin(), kBrokerRules.end());
    if (undisturbed.at(kCommitted) == "yes") {
        rules.push_back(kRecordIsReplaced);
    }
    SweepCalls({name, [&](const Watcher& watch) { return scene.Run(met, watch); }, Untouched(),
                undisturbed, RaisedInBroker, "none", rules});
}

TEST(FaultSweep, OfABrokerWhoseWorkerFails) {
    const SweptBroker scene;
    SweepBroker("Broker whose worker fails", scene, {}, WorkerFailed(scene));
}

TEST(FaultSweep, OfABrokerWhoseWorkerIsNeverReady) {
    const SweptBroker scene;
    SweepBroker("Broker whose worker is never ready", scene, {.workerBecomesReady = false},
                NeverReady());
}

TEST(FaultSweep, OfABrokerWhosePromptIsDeclined) {
    const SweptBroker scene;
    SweepBroker("Broker whose prompt is declined", scene, {.promptIsGranted = false}, Declined());
}

TEST(FaultSweep, OfABrokerThatIsToldToCancel) {
    SweptBroker scene;
    scene.Cancel();
    SweepBroker("Broker that is told to cancel", scene, {}, Ended("exit code 2", kReady));
}

TEST(FaultSweep, OfABrokerWhoseApplicationStaysOpen) {
    const SweptBroker scene;
    SweepBroker("Broker whose application stays open", scene, {.applicationExits = false},
                StayedOpen());
}

}  // namespace
}  // namespace updater::faults
