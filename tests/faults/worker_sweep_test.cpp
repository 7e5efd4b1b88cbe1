#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <span>
#include <vector>

#include "faults/sweep.h"
#include "faults/swept_worker.h"

namespace updater::faults {
namespace {

constexpr char kSucceeded[] = "succeeded, \"Installed version 2.0.0.0\", 0";
// What stands when the installation ends before it has begun.
constexpr char kAuthorized[] = "authorized, \"Administrator authorization accepted\", 0";
constexpr char kSetupFailed[] = "Inno Setup did not complete; exit code=1";
constexpr char kRestored[] = "; previous program restored";
constexpr char kOtherVersion[] = "; restore version mismatch";

std::string Failed(const std::string& message) {
    return StatusText("failed", message, 1);
}

Outcome Untouched() {
    return {{kEnd, "uncaught"},          {kStatus, "none"},
            {kProgram, "previous"},      {kUserFiles, "as they were"},
            {kRegisteredVersion, "1.0"}, {kStaging, "none"},
            {kBackup, "not complete"},   {kOpenFiles, ""}};
}

Outcome Installed() {
    Outcome outcome = Untouched();
    outcome[kEnd] = "exit code 0";
    outcome[kStatus] = kSucceeded;
    outcome[kProgram] = "new";
    outcome[kRegisteredVersion] = "2.0";
    outcome[kStaging] = "left";
    outcome[kBackup] = "complete";
    return outcome;
}

Outcome RolledBack() {
    Outcome outcome = Untouched();
    outcome[kEnd] = "exit code 1";
    outcome[kStatus] = Failed(std::string(kSetupFailed) + kRestored);
    outcome[kStaging] = "left";
    outcome[kBackup] = "complete";
    return outcome;
}

Outcome Cancelled() {
    Outcome outcome = Untouched();
    outcome[kEnd] = "exit code 2";
    outcome[kStatus] =
        StatusText("cancelled", "Application remained open; installation cancelled", 0);
    return outcome;
}

// Whether a call of the function, within the caller, was carried out before the fault.
bool Preceded(const Fault& fault, std::string_view function, std::string_view caller) {
    const auto end = fault.calls.begin() + static_cast<std::ptrdiff_t>(fault.index);
    return std::any_of(fault.calls.begin(), end, [&](const Call& call) {
        return call.function == function && IsWithin(call, caller);
    });
}

// The failure of a step of the rollback: what went before has been done, what follows has not.
Outcome InterruptedRollback(const Fault& fault, const std::string& message) {
    Outcome outcome = RolledBack();
    outcome[kStatus] = Failed(message);
    const bool restoring = IsWithin(fault.FailedCall(), "RestoreProgram");
    const bool beforeRestore = IsWithin(fault.FailedCall(), "EnsureNoOtherInstance");
    outcome[kProgram] = restoring ? kAnything : beforeRestore ? "new" : "previous";
    const bool registered = Preceded(fault, "RegSetValueExW", "RollBack");
    outcome[kRegisteredVersion] = registered ? "1.0" : "2.0";
    return outcome;
}

Outcome RaisedInWorker(const Fault& fault, const std::string& message) {
    if (IsWithin(fault.FailedCall(), "RollBack")) {
        return InterruptedRollback(fault, message);
    }
    if (IsWithin(fault.FailedCall(), "InstallAndVerify")) {
        Outcome outcome = RolledBack();
        outcome[kStatus] = Failed(message + kRestored);
        return outcome;
    }
    Outcome outcome = Untouched();
    outcome[kEnd] = "exit code 1";
    outcome[kStatus] = Failed(message);
    const bool staged = Preceded(fault, "CreateDirectoryW", "CreateStagingDirectory");
    outcome[kStaging] = staged ? "left" : "none";
    outcome[kBackup] = staged ? kAnything : "not complete";
    return outcome;
}

constexpr Effect kCancels = Changes([](Outcome& outcome, const Fault&) { outcome = Cancelled(); });
constexpr Effect kRestoresOtherVersion = Changes([](Outcome& outcome, const Fault&) {
    outcome[kStatus] = Failed(std::string(kSetupFailed) + kOtherVersion);
});

// The digest that is expected is then another one, which shows when the copy is checked.
constexpr Effect kRefusesCopy = Changes([](Outcome& outcome, const Fault&) {
    outcome = Untouched();
    outcome[kEnd] = "exit code 1";
    outcome[kStatus] = Failed("Protected installer size or SHA256 mismatch");
    outcome[kStaging] = "left";
});

constexpr char kAnotherVersion[] = "Installed executable version mismatch";

constexpr auto kWorkerRules = std::to_array<Rule>({
    {"CreateMutexW", "", L"", Raises("Another update installation is running")},
    {"OpenProcess", "OpenProcessOf", L"",
     Raises("Installation directory does not match the running application")},
    {"OpenEventW", "", L"", Raises("Update broker is missing")},
    {"SHGetKnownFolderPath", "", L"", Raises("Cannot locate machine staging directory")},
    {"ConvertStringSecurityDescriptorToSecurityDescriptorW", "", L"",
     Raises("Cannot create protected staging directory")},
    {"CreateDirectoryW", "CreateStagingDirectory", L"",
     Raises("Protected staging directory already exists or is inaccessible")},

    // The setup program still runs when its exit code is read.
    {"WaitForSingleObject", "AwaitExitCode", L"",
     Raises("Inno Setup did not complete; exit code=259")},
    {"GetExitCodeProcess", "", L"", Raises(kSetupFailed)},
    // The broker never learns that the worker is ready; or the worker, that it may go on.
    {"SetEvent", "", L"", kCancels},
    {"WaitForSingleObject", "EnsureNoOtherInstance", L"", kNothing},
    {"WaitForSingleObject", "RunWorker", L"", kCancels},

    {"WideCharToMultiByte", "ReadWorkerOptions", L"", kRefusesCopy},
    // The path of the entry is then empty, and stands for the directory.
    {"MultiByteToWideChar", "VerifyInventoryLine", L"", Raises("SHA256 verification failed")},
    {"MultiByteToWideChar", "InstallAndVerify", L"", Raises(kAnotherVersion)},
    // The version is then missing from the message, or blank.
    {"WideCharToMultiByte", "InstallAndVerify", L"", Changes([](Outcome& outcome, const Fault&) {
         outcome[kStatus] = StatusText("succeeded", "Installed version ", 0);
     }),
     Turn::First},
    {"WideCharToMultiByte", "InstallAndVerify", L"", Changes([](Outcome& outcome, const Fault&) {
         outcome[kStatus] = StatusText("succeeded", "Installed version        ", 0);
     })},
});

// What was recorded before the installation matters only when it fails.
constexpr auto kSuccessRules = std::to_array<Rule>({
    {"MultiByteToWideChar", "RecordPreviousProgram", L"", kNothing},
    {"RegGetValueW", "", L"", kNothing},
});

constexpr auto kRollbackRules = std::to_array<Rule>({
    {"MultiByteToWideChar", "RecordPreviousProgram", L"", kRestoresOtherVersion},
    {"MultiByteToWideChar", "RollBack", L"", kRestoresOtherVersion},
    // There is then no registered version to restore: it stays as the setup program wrote it.
    {"RegGetValueW", "", L"",
     Changes([](Outcome& outcome, const Fault&) { outcome[kRegisteredVersion] = "2.0"; })},
});

std::vector<Rule> WithWorkerRules(std::span<const Rule> rules) {
    std::vector<Rule> all(rules.begin(), rules.end());
    all.insert(all.end(), kWorkerRules.begin(), kWorkerRules.end());
    return all;
}

void SweepWorker(const char* name, SweptWorker& scene, const WorkerCase& met,
                 const Outcome& undisturbed, std::span<const Rule> rules) {
    SweepCalls({name, [&](const Watcher& watch) { return scene.Run(met, watch); }, Untouched(),
                undisturbed, RaisedInWorker, kAuthorized, WithWorkerRules(rules)});
}

TEST(FaultSweep, OfAnUpdate) {
    SweptWorker scene;
    SweepWorker("Worker that installs", scene, {}, Installed(), kSuccessRules);
}

TEST(FaultSweep, OfARollback) {
    SweptWorker scene;
    SweepWorker("Worker that rolls back", scene, {.setupExitCode = 1}, RolledBack(),
                kRollbackRules);
}

TEST(FaultSweep, OfACancelledUpdate) {
    SweptWorker scene;
    SweepWorker("Worker that cancels", scene, {.brokerCommits = false}, Cancelled(), {});
}

TEST(FaultSweep, OfAnInstallationWithALink) {
    Outcome refused = Untouched();
    refused[kEnd] = "exit code 1";
    refused[kStatus] = Failed("Reparse points are not supported in installation directory");
    refused[kStaging] = "left";
    SweptWorker scene;
    scene.AddLink();
    SweepWorker("Worker that meets a link", scene, {}, refused, kSuccessRules);
}

}  // namespace
}  // namespace updater::faults
