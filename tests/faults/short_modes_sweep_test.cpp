#include <gtest/gtest.h>

#include <array>

#include "faults/sweep.h"
#include "fixtures/application_names.h"
#include "fixtures/doubles/scoped_command_line.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/temporary_directory.h"
#include "support/argument_quoting.h"
#include "support/file_system.h"
#include "support/updater_arguments.h"

// The runs that need nothing but a job directory.

namespace updater::faults {
namespace {

/// What the user's file of the self-test's installation holds.
constexpr char kUserFile[] = "the user's file";

constexpr char kPassed[] =
    "PASS: SHA256, Chinese/space paths, install failure rollback, account preservation";
constexpr char kUnknownMode[] = "Unknown updater mode";

Outcome Untouched() {
    return {{kEnd, "uncaught"}, {kStatus, "none"}, {kUserFile, "none"}, {kOpenFiles, ""}};
}

Outcome Ended(int exitCode, const std::string& status) {
    Outcome outcome = Untouched();
    outcome[kEnd] = "exit code " + std::to_string(exitCode);
    outcome[kStatus] = status;
    return outcome;
}

// What became of the user's file until then is no matter.
Outcome Raised(const Fault& /*fault*/, const std::string& message) {
    Outcome outcome = Ended(1, StatusText("failed", message, 1));
    outcome[kUserFile] = kAnything;
    return outcome;
}

Outcome RunInJobDirectory(const std::wstring& mode, const Watcher& watch) {
    const TemporaryDirectory directory;
    const std::filesystem::path jobDirectory = directory.path / L"\u4EFB\u52A1 job";
    CreateDirectories(jobDirectory);
    const std::wstring commandLine =
        L"updater " + mode + L" " + kJobDirOption + L" " + QuoteArgument(jobDirectory.native());
    Outcome outcome;
    {
        const ScopedCommandLine scope(commandLine);
        watch([&outcome] { outcome[kEnd] = EndOfUpdater(); });
    }
    outcome[kStatus] = ReadStatus(jobDirectory);
    const std::filesystem::path userFile =
        jobDirectory / L"\u4E2D\u6587 path with spaces" / L"account.db";
    outcome[kUserFile] = PathExists(userFile) ? ReadFileContent(userFile) : "none";
    outcome[kOpenFiles] = FilesHeldOpen(directory.path);
    return outcome;
}

// The writing of the installation is not checked; a later step finds what is missing.
constexpr auto kSelfTestRules = std::to_array<Rule>({
    {"CreateFileW", "WriteFixtureFile", kExecutableName, Raises("SHA256 verification failed"),
     Turn::First},
    {"CreateFileW", "WriteFixtureFile", L"account.db",
     Raises("Rollback fixture validation failed")},
    {"CreateFileW", "WriteFixtureFile", L"", kNothing},
    {"WriteFile", "WriteFixtureFile", L"",
     Changes([](Outcome& outcome, const Fault&) { outcome[kUserFile] = kAnything; })},
});

TEST(FaultSweep, OfTheSelfTest) {
    Outcome passed = Ended(0, StatusText("succeeded", kPassed, 0));
    passed[kUserFile] = "account retained";
    SweepCalls({"Self-test",
                [](const Watcher& watch) { return RunInJobDirectory(kSelfTestFlag, watch); },
                Untouched(),
                passed,
                Raised,
                "none",
                {kSelfTestRules.begin(), kSelfTestRules.end()}});
}

TEST(FaultSweep, OfTheOutermostHandler) {
    SweepCalls({"Outermost handler",
                [](const Watcher& watch) { return RunInJobDirectory(L"", watch); },
                Untouched(),
                Ended(1, StatusText("failed", kUnknownMode, 1)),
                Raised,
                "none",
                {}});
}

}  // namespace
}  // namespace updater::faults
