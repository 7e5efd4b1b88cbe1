#include "support/process_utilities.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// After the Windows types that it needs.
#include <objbase.h>

#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "elevation/program_start.h"
#include "fixtures/application_names.h"
#include "fixtures/directory_link.h"
#include "fixtures/file_content.h"
#include "fixtures/open_handles.h"
#include "fixtures/patience.h"
#include "fixtures/programs/program_report.h"
#include "fixtures/programs/running_program.h"
#include "fixtures/raised_errors.h"
#include "fixtures/short_path.h"
#include "fixtures/temporary_directory.h"
#include "support/argument_quoting.h"
#include "support/file_system.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

// The executable's name without ".exe".
std::wstring Stem() {
    return std::filesystem::path(kExecutableName).stem().native();
}

using testing::ElementsAre;

constexpr DWORD kLongPath = 32768;
constexpr char kRunning[] = "Another application instance is running; close it first";

// Returns what the reporting stand-in says of itself when it runs with this token.
std::wstring ElevationWith(StartToken token) {
    const TemporaryDirectory directory;
    ProgramStart start;
    start.program = ReportingProgram();
    start.arguments = ReportArguments(directory.path / L"report", 0);
    start.token = token;
    const StartedProgram started = StartProgram(start);
    EXPECT_EQ(AwaitExitCode(started.process.get()), 0U);
    return ReadProgramReport(directory.path / L"report").elevation;
}

TEST(IsProcessElevated, TellsAProcessWithTheFullTokenFromOneWithTheLimitedToken) {
    const bool elevated = IsProcessElevated();
    EXPECT_EQ(ElevationWith(StartToken::Own), elevated ? L"elevated" : L"limited");
    EXPECT_EQ(ElevationWith(StartToken::Elevated), L"elevated");
    EXPECT_EQ(ElevationWith(StartToken::Limited), L"limited");
}

TEST(CreateJobIdentity, IsABracedUpperCaseGuidOf38Characters) {
    const std::wstring identity = CreateJobIdentity();
    EXPECT_EQ(identity.size(), 38U);
    EXPECT_EQ(identity.find_first_not_of(L"{}-0123456789ABCDEF"), std::wstring::npos);
    GUID guid{};
    EXPECT_EQ(CLSIDFromString(identity.c_str(), &guid), S_OK);
    for (const std::size_t hyphen : {9U, 14U, 19U, 24U}) {
        EXPECT_EQ(identity[hyphen], L'-');
    }
    EXPECT_EQ(identity.front(), L'{');
    EXPECT_EQ(identity.back(), L'}');
}

TEST(CreateJobIdentity, IsDifferentOnEveryCall) {
    std::set<std::wstring> identities;
    for (int call = 0; call < 1000; ++call) {
        identities.insert(CreateJobIdentity());
    }
    EXPECT_EQ(identities.size(), 1000U);
}

TEST(GetProcessImagePath, OfThisProcessIsItsModulesPath) {
    std::wstring module(kLongPath, L'\0');
    module.resize(GetModuleFileNameW(nullptr, module.data(), kLongPath));
    EXPECT_EQ(GetProcessImagePath(GetCurrentProcess()), module);
}

TEST(GetProcessImagePath, OfAnotherProcessIsInDriveLetterForm) {
    const TemporaryDirectory directory;
    const RunningProgram program(directory.path / L"\u7A0B\u5E8F a.exe");
    const UniqueHandle limited =
        OwnHandle(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, program.processId));
    ASSERT_TRUE(limited);
    EXPECT_EQ(GetProcessImagePath(limited.get()), program.path.native());
}

TEST(GetProcessImagePath, AHandleThatIsNoProcessToQueryIsAnError) {
    const UniqueHandle event = OwnHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const UniqueHandle onlyToWaitFor =
        OwnHandle(OpenProcess(SYNCHRONIZE, FALSE, GetCurrentProcessId()));
    ASSERT_TRUE(onlyToWaitFor);
    const std::vector<HANDLE> handles = {nullptr, event.get(), onlyToWaitFor.get()};
    for (const HANDLE handle : handles) {
        EXPECT_THAT([handle] { GetProcessImagePath(handle); },
                    RaisesError("Cannot inspect application process"));
    }
}

struct PathPair {
    std::filesystem::path path;
    std::filesystem::path otherPath;
};

TEST(IsSamePath, FormsOfOnePathAreTheSame) {
    const TemporaryDirectory directory;
    const std::filesystem::path file = directory.path / L"Program Files" / L"App" / kExecutableName;
    WriteFileContent(file, "");
    const std::wstring folder = file.parent_path().native();
    const std::vector<PathPair> pairs = {
        {file, file},
        {file, directory.path / L"program files" / L"app" / InCapitals(kExecutableName)},
        {file, folder + L"\\.\\..\\APP\\\\" IDENTITY_EXECUTABLE},
        {file, folder + L"/" IDENTITY_EXECUTABLE},
        {file, LR"(\\?\)" + file.native()},
        {file, LR"(\\.\)" + file.native()},
        {folder, folder + L"\\"},
        {folder + L"\\missing\\x.exe", folder + L"\\MISSING\\y\\..\\X.EXE"},
        {L"Q:\\no\\drive", L"q:/NO/drive"},
        {L"", L""},
    };
    for (const PathPair& pair : pairs) {
        EXPECT_TRUE(IsSamePath(pair.path, pair.otherPath)) << WideToUtf8(pair.otherPath.native());
        EXPECT_TRUE(IsSamePath(pair.otherPath, pair.path)) << WideToUtf8(pair.otherPath.native());
    }
}

TEST(IsSamePath, APathAndTheSamePathThroughADirectoryLinkAreTheSame) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"real" / kExecutableName, "");
    const DirectoryLink link(directory.path / L"link", directory.path / L"real");
    EXPECT_TRUE(IsSamePath(directory.path / L"real" / kExecutableName,
                           directory.path / L"LINK" / kExecutableName));
    EXPECT_TRUE(IsSamePath(directory.path / L"link" / L"missing.exe",
                           directory.path / L"real" / L"missing.exe"));
}

TEST(IsSamePath, APathInShortNamesIsTheSame) {
    const TemporaryDirectory directory;
    const std::filesystem::path folder = directory.path / L"A directory of a long name";
    WriteFileContent(folder / kExecutableName, "");
    const std::wstring shortPath = ShortPath(folder);
    ASSERT_FALSE(shortPath.empty());
    ASSERT_NE(shortPath, folder.native());
    EXPECT_TRUE(
        IsSamePath(shortPath + L"\\" + InCapitals(kExecutableName), folder / kExecutableName));
}

TEST(IsSamePath, OtherPathsAreDifferent) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / kExecutableName, "");
    WriteFileContent(directory.path / L"other" / kExecutableName, "");
    const std::vector<PathPair> pairs = {
        {directory.path / kExecutableName, directory.path / L"other" / kExecutableName},
        {directory.path / kExecutableName, directory.path / (Stem() + L"2.exe")},
        {directory.path / kExecutableName, directory.path / (Stem() + L".ex")},
        {directory.path / kExecutableName, L""},
        // Letters outside A to Z do not fold.
        {directory.path / L"missing \u00C9", directory.path / L"missing \u00E9"},
        {directory.path / L"missing \u0416", directory.path / L"missing \u0436"},
        {directory.path / L"missing \uFF21", directory.path / L"missing \uFF41"},
        {directory.path / L"missing K", directory.path / L"missing \u212A"},
    };
    for (const PathPair& pair : pairs) {
        EXPECT_FALSE(IsSamePath(pair.path, pair.otherPath)) << WideToUtf8(pair.otherPath.native());
    }
}

TEST(OpenProcessOf, GivesAHandleOfAProcessThatRunsTheExecutable) {
    const TemporaryDirectory directory;
    const RunningProgram program(directory.path / kExecutableName);
    const UniqueHandle process =
        OpenProcessOf(directory.path / InCapitals(kExecutableName), program.processId, "mismatch");
    ASSERT_TRUE(process);
    EXPECT_EQ(WaitForSingleObject(process.get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
    program.End();
    EXPECT_EQ(WaitForSingleObject(process.get(), 0), WAIT_OBJECT_0);
}

TEST(OpenProcessOf, RaisesTheGivenMessageForAnotherProgramOrNoProcess) {
    const TemporaryDirectory directory;
    const RunningProgram program(directory.path / kExecutableName);
    EXPECT_THAT([&] { OpenProcessOf(directory.path / L"other.exe", program.processId, "one"); },
                RaisesError("one"));
    for (const std::uint32_t noProcess : {0U, 0xFFFFFFF0U}) {
        EXPECT_THAT([&] { OpenProcessOf(program.path, noProcess, "two"); }, RaisesError("two"));
    }
}

TEST(EnsureNoOtherInstance, NoInstanceIsNoObstacle) {
    const TemporaryDirectory directory;
    EnsureNoOtherInstance(directory.path / kExecutableName, 0);
}

TEST(EnsureNoOtherInstance, AnInstanceInAnyLetterCaseBlocks) {
    const TemporaryDirectory directory;
    for (const std::wstring& name : {std::wstring(kExecutableName), InCapitals(kExecutableName),
                                     InCapitals(Stem()) + L".Exe"}) {
        const RunningProgram program(directory.path / name);
        EXPECT_THAT([&] { EnsureNoOtherInstance(directory.path / kExecutableName, 0); },
                    RaisesError(kRunning));
    }
}

TEST(EnsureNoOtherInstance, AProgramOfAnotherNameDoesNotBlock) {
    const TemporaryDirectory directory;
    for (const std::wstring& name : std::vector<std::wstring>{
             Stem() + L"2.exe", L"x" IDENTITY_EXECUTABLE, Stem(), Stem() + L".com"}) {
        const RunningProgram program(directory.path / name);
        EnsureNoOtherInstance(directory.path / kExecutableName, 0);
        EnsureNoOtherInstance(program.path, 0);
    }
}

TEST(EnsureNoOtherInstance, AnInstanceFromAnotherDirectoryDoesNotBlock) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"installed" / kExecutableName, "");
    const RunningProgram program(directory.path / L"elsewhere" / kExecutableName);
    EnsureNoOtherInstance(directory.path / L"installed" / kExecutableName, 0);
}

TEST(EnsureNoOtherInstance, AnInstanceReachedThroughALinkBlocks) {
    const TemporaryDirectory directory;
    const RunningProgram program(directory.path / L"real" / kExecutableName);
    const DirectoryLink link(directory.path / L"link", directory.path / L"real");
    EXPECT_THAT([&] { EnsureNoOtherInstance(link.link / kExecutableName, 0); },
                RaisesError(kRunning));
}

TEST(EnsureNoOtherInstance, TheAllowedInstanceDoesNotBlockButAnyOtherDoes) {
    const TemporaryDirectory directory;
    const RunningProgram parent(directory.path / kExecutableName);
    EnsureNoOtherInstance(parent.path, parent.processId);

    const RunningProgram elsewhere(directory.path / L"elsewhere" / kExecutableName);
    EnsureNoOtherInstance(parent.path, parent.processId);
    EXPECT_THAT([&] { EnsureNoOtherInstance(parent.path, elsewhere.processId); },
                RaisesError(kRunning));
}

TEST(EnsureNoOtherInstance, WithTheAllowedIdZeroTheParentBlocksToo) {
    const TemporaryDirectory directory;
    const RunningProgram parent(directory.path / kExecutableName);
    EXPECT_THAT([&] { EnsureNoOtherInstance(parent.path, 0); }, RaisesError(kRunning));
}

TEST(EnsureNoOtherInstance, AnInstanceThatHasEndedDoesNotBlock) {
    const TemporaryDirectory directory;
    const RunningProgram program(directory.path / kExecutableName);
    program.End();
    EnsureNoOtherInstance(program.path, 0);
}

TEST(EnsureNoOtherInstance, NoHandleStaysOpen) {
    const TemporaryDirectory directory;
    const RunningProgram program(directory.path / kExecutableName);
    const RunningProgram elsewhere(directory.path / L"elsewhere" / kExecutableName);
    const auto scan = [&] {
        EXPECT_THAT([&] { EnsureNoOtherInstance(program.path, 0); }, RaisesError(kRunning));
        EnsureNoOtherInstance(program.path, program.processId);
        EnsureNoOtherInstance(directory.path / L"x" / kExecutableName, 0);
        EXPECT_TRUE(OpenProcessOf(program.path, program.processId, "mismatch"));
        EXPECT_THAT([&] { OpenProcessOf(program.path, elsewhere.processId, "mismatch"); },
                    RaisesError("mismatch"));
        IsProcessElevated();
        CreateJobIdentity();
    };
    ExpectNoHandleLeft(scan);
}

TEST(IsSignalledWithin, AnEndedProcessIsSignalledAndARunningOneIsNot) {
    const TemporaryDirectory directory;
    const RunningProgram program(directory.path / kExecutableName);
    EXPECT_FALSE(IsSignalledWithin(program.process.get(), 0));
    EXPECT_FALSE(IsSignalledWithin(program.process.get(), 20));
    program.End();
    EXPECT_TRUE(IsSignalledWithin(program.process.get(), 0));
    EXPECT_FALSE(IsSignalledWithin(nullptr, 0)) << "a failed wait";
}

TEST(LaunchProcess, TheProgramReceivesItsArgumentsAndWorkingDirectory) {
    const TemporaryDirectory directory;
    const std::filesystem::path program =
        directory.path / L"\u7A0B\u5E8F \u6587\u4EF6" / L"a b.exe";
    CreateDirectories(program.parent_path());
    CopyToNewFile(ReportingProgram(), program);
    const std::filesystem::path report = directory.path / L"report";
    EXPECT_EQ(
        LaunchProcess(program, ReportArguments(report, 0) + L" /SP- /DIR=\"C:\\x y\\\\\" plain",
                      program.parent_path(), LaunchWait::UntilExit),
        0U);
    const ProgramReport reported = ReadProgramReport(report);
    EXPECT_EQ(reported.workingDirectory, program.parent_path().native());
    EXPECT_THAT(reported.arguments, ElementsAre(L"/SP-", L"/DIR=C:\\x y\\", L"plain"));
}

TEST(LaunchProcess, AWaitingLaunchReturnsTheExitCode) {
    const TemporaryDirectory directory;
    for (const std::uint32_t exitCode :
         {0U, 1U, 2U, 259U, 0x7FFFFFFFU, 0x80000000U, 0xC0000005U, 0xFFFFFFFFU}) {
        EXPECT_EQ(
            LaunchProcess(ReportingProgram(), ReportArguments(directory.path / L"report", exitCode),
                          directory.path, LaunchWait::UntilExit),
            exitCode);
    }
}

TEST(LaunchProcess, WithoutArgumentsOnlyTheProgramIsOnTheCommandLine) {
    const TemporaryDirectory directory;
    EXPECT_EQ(LaunchProcess(ReportingProgram(), L"", directory.path, LaunchWait::UntilExit), 90U)
        << "the stand-in's own complaint about missing arguments";
}

TEST(LaunchProcess, ALaunchWithoutWaitingReturnsZeroWhileTheProgramRuns) {
    const std::wstring baseName = L"Local\\LaunchProcess-" + CreateJobIdentity();
    const UniqueHandle running =
        OwnHandle(CreateEventW(nullptr, TRUE, FALSE, (baseName + L"-running").c_str()));
    const UniqueHandle end =
        OwnHandle(CreateEventW(nullptr, TRUE, FALSE, (baseName + L"-end").c_str()));
    const TemporaryDirectory directory;
    const std::filesystem::path program = directory.path / kExecutableName;
    CopyToNewFile(WaitingProgram(), program);

    EXPECT_EQ(LaunchProcess(
                  program,
                  QuoteArgument(baseName + L"-running") + L' ' + QuoteArgument(baseName + L"-end"),
                  directory.path.parent_path(), LaunchWait::None),
              0U);
    EXPECT_EQ(WaitForSingleObject(running.get(), kPatienceMilliseconds), WAIT_OBJECT_0);
    EXPECT_EQ(DeleteFileW(program.c_str()), 0) << "the program still runs";

    SetEvent(end.get());
    const ULONGLONG deadline = GetTickCount64() + kPatienceMilliseconds;
    while (DeleteFileW(program.c_str()) == 0 && GetTickCount64() < deadline) {
        Sleep(10);
    }
    EXPECT_FALSE(PathExists(program)) << "the program ends by itself";
}

TEST(LaunchProcess, AFailureCarriesTheSystemsErrorNumber) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"text.exe", "no program");
    struct LaunchCase {
        std::filesystem::path executable;
        std::filesystem::path workingDirectory;
        const char* message;
    };
    const std::vector<LaunchCase> cases = {
        {directory.path / L"missing.exe", directory.path, "Process launch failed: 2"},
        {directory.path / L"missing" / L"missing.exe", directory.path, "Process launch failed: 3"},
        {directory.path / L"text.exe", directory.path, "Process launch failed: 193"},
        {ReportingProgram(), directory.path / L"missing", "Process launch failed: 267"},
    };
    for (const LaunchCase& launch : cases) {
        for (const LaunchWait wait : {LaunchWait::None, LaunchWait::UntilExit}) {
            EXPECT_THAT(
                [&] { LaunchProcess(launch.executable, L"", launch.workingDirectory, wait); },
                RaisesError(launch.message));
        }
    }
}

TEST(LaunchProcess, NoHandleStaysOpen) {
    const TemporaryDirectory directory;
    const auto launchAll = [&] {
        for (const LaunchWait wait : {LaunchWait::None, LaunchWait::UntilExit}) {
            LaunchProcess(ReportingProgram(), L"", directory.path.parent_path(), wait);
            EXPECT_THAT(
                [&] { LaunchProcess(directory.path / L"missing.exe", L"", directory.path, wait); },
                RaisesError("Process launch failed: 2"));
        }
    };
    ExpectNoHandleLeft(launchAll);
}

}  // namespace

}  // namespace updater
