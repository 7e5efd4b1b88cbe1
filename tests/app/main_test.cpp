#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "fixtures/application_names.h"
#include "fixtures/built_path.h"
#include "fixtures/expect_file_system_error.h"
#include "fixtures/file_content.h"
#include "fixtures/patience.h"
#include "fixtures/temporary_directory.h"
#include "support/argument_quoting.h"
#include "support/directory_listing.h"
#include "support/exit_code.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/status_text.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr char kUnknownMode[] =
    R"({"state":"failed","message":"Unknown updater mode","exitCode":1})";

struct Outcome {
    bool ended = false;
    DWORD exitCode = 0;
    bool windowSeen = false;
    std::string output;
};

BOOL CALLBACK NoteWindow(HWND window, LPARAM parameter) {
    auto& [processId, seen] = *reinterpret_cast<std::pair<DWORD, bool>*>(parameter);
    DWORD owner = 0;
    GetWindowThreadProcessId(window, &owner);
    seen = seen || (owner == processId && IsWindowVisible(window) != 0);
    return TRUE;
}

bool HasVisibleWindow(DWORD processId) {
    std::pair<DWORD, bool> search{processId, false};
    EnumWindows(NoteWindow, reinterpret_cast<LPARAM>(&search));
    return search.second;
}

UniqueHandle CreateInheritableFile(const std::filesystem::path& file) {
    SECURITY_ATTRIBUTES inheritable{sizeof(inheritable), nullptr, TRUE};
    return OwnHandle(CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inheritable,
                                 CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
}

std::vector<std::wstring> EntryNames(const std::filesystem::path& directory) {
    std::vector<std::wstring> names;
    VisitDirectory(directory, [&names](const ListedEntry& entry) {
        names.push_back(entry.relativePath.native());
    });
    return names;
}

// The executable in a directory of its own, run in an empty current directory.
struct Executable : testing::Test {
    Executable() {
        CreateDirectories(program);
        CreateDirectories(current);
        CreateDirectories(job);
        CopyToNewFile(BuiltPath(CORVELLAN_UPDATER), executable);
    }

    Outcome Run(const std::wstring& arguments) const {
        const std::filesystem::path output = directory.path / L"output";
        const UniqueHandle outputFile = CreateInheritableFile(output);
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdOutput = outputFile.get();
        startup.hStdError = outputFile.get();
        PROCESS_INFORMATION started{};
        std::wstring commandLine = QuoteArgument(executable.native()) + L' ' + arguments;
        if (CreateProcessW(executable.c_str(), commandLine.data(), nullptr, nullptr, TRUE, 0,
                           nullptr, current.c_str(), &startup, &started) == 0) {
            return {};
        }
        const UniqueHandle process = OwnHandle(started.hProcess);
        const UniqueHandle thread = OwnHandle(started.hThread);
        Outcome outcome = Watch(process.get(), started.dwProcessId);
        outcome.output = ReadFileContent(output);
        return outcome;
    }

    // Waits for the process's end, and ends it when it takes too long.
    static Outcome Watch(HANDLE process, DWORD processId) {
        Outcome outcome;
        const ULONGLONG deadline = GetTickCount64() + kPatienceMilliseconds;
        while (!outcome.ended && GetTickCount64() < deadline) {
            outcome.ended = WaitForSingleObject(process, 5) == WAIT_OBJECT_0;
            outcome.windowSeen = outcome.windowSeen || HasVisibleWindow(processId);
        }
        if (!outcome.ended) {
            TerminateProcess(process, 0);
            WaitForSingleObject(process, INFINITE);
        }
        GetExitCodeProcess(process, &outcome.exitCode);
        return outcome;
    }

    // Runs the executable to an end that it does not report in a status file.
    // An end by `abort` is told from this one only on Windows, where it opens a box; under Wine it
    // is silent and has the same exit code.
    void ExpectSilentEnd(const std::wstring& arguments) const {
        SCOPED_TRACE(WideToUtf8(arguments));
        const auto jobBefore = ReadTreeContent(job);
        const auto currentBefore = ReadTreeContent(current);
        const Outcome outcome = Run(arguments);
        EXPECT_TRUE(outcome.ended);
        EXPECT_EQ(outcome.exitCode, DWORD{kExitUnreported});
        EXPECT_FALSE(outcome.windowSeen);
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(ReadTreeContent(job), jobBefore);
        EXPECT_EQ(ReadTreeContent(current), currentBefore);
        EXPECT_THAT(EntryNames(program), ElementsAre(L"" IDENTITY_UPDATER));
    }

    void ExpectExitCode(const std::wstring& arguments, DWORD exitCode) const {
        SCOPED_TRACE(WideToUtf8(arguments));
        const Outcome outcome = Run(arguments);
        EXPECT_TRUE(outcome.ended);
        EXPECT_EQ(outcome.exitCode, exitCode);
        EXPECT_FALSE(outcome.windowSeen);
        EXPECT_EQ(outcome.output, "");
    }

    std::wstring JobDir() const { return L"--job-dir " + QuoteArgument(job.native()); }

    TemporaryDirectory directory;
    std::filesystem::path program = directory.path / L"program";
    std::filesystem::path executable = program / L"" IDENTITY_UPDATER;
    std::filesystem::path current = directory.path / L"current";
    std::filesystem::path job = directory.path / L"\u4EFB\u52A1 directory";
};

TEST(UnreportedExitCode, IsNoneOfTheOrdinaryOnes) {
    EXPECT_THAT(static_cast<int>(kExitUnreported),
                testing::AllOf(testing::Ne(0), testing::Ne(1), testing::Ne(2)));
}

TEST_F(Executable, EndsSilentlyWithoutArguments) {
    ExpectSilentEnd(L"");
}

TEST_F(Executable, EndsSilentlyWithBrokerAndJobDirStandingLast) {
    ExpectSilentEnd(L"--broker --job-dir");
}

TEST_F(Executable, EndsSilentlyWithoutAUsableJobDirectory) {
    for (const wchar_t* arguments :
         {L"--broker", L"--worker", L"--self-test", L"--job-dir", L"--self-test --job-dir",
          L"--job-dir \"\" --worker", L"--job-dir \"\" --broker", L"--self-test --job-dir \"\"",
          L"--worker stray", L"stray"}) {
        ExpectSilentEnd(arguments);
    }
}

TEST_F(Executable, EndsSilentlyWithAFlagForAJobDirectoryThatDoesNotExist) {
    ExpectSilentEnd(L"--job-dir --self-test");
}

TEST_F(Executable, ReportsIntoADirectoryNamedLikeAFlag) {
    CreateDirectories(current / L"--self-test");
    ExpectExitCode(L"--job-dir --self-test", 1);
    EXPECT_THAT(
        ReadTreeContent(current),
        ElementsAre(Pair(L"--self-test\\", ""), Pair(L"--self-test\\status.json", kUnknownMode)));
}

TEST_F(Executable, EndsSilentlyWhenTheStatusCannotBeWritten) {
    ExpectSilentEnd(L"--job-dir " + QuoteArgument((job / L"missing").native()));
    WriteFileContent(job / L"file", "no directory");
    ExpectSilentEnd(L"--worker --job-dir " + QuoteArgument((job / L"file").native()));
}

TEST_F(Executable, ReportsAnUnknownMode) {
    ExpectExitCode(JobDir(), 1);
    EXPECT_THAT(ReadTreeContent(job), ElementsAre(Pair(L"status.json", kUnknownMode)));
}

TEST_F(Executable, SelectsNoModeByAFlagInAnotherLetterCase) {
    for (const wchar_t* flag : {L"--Broker", L"--WORKER", L"--Self-Test"}) {
        ExpectExitCode(std::wstring(flag) + L" x " + JobDir(), 1);
        EXPECT_EQ(ReadFileContent(job / L"status.json"), kUnknownMode);
        RemoveFile(job / L"status.json");
        ExpectSilentEnd(std::wstring(flag) + L" " + JobDir());
    }
}

TEST_F(Executable, ReportsTheFailureOfAModeIntoTheLastJobDirectory) {
    const std::filesystem::path last = directory.path / L"last";
    CreateDirectories(last);
    std::vector<std::string> records;
    for (const wchar_t* mode : {L"--worker ", L"--broker "}) {
        ExpectExitCode(mode + JobDir() + L" --job-dir " + QuoteArgument(last.native()), 1);
        EXPECT_THAT(ReadTreeContent(job), IsEmpty());
        records.push_back(ReadFileContent(last / L"status.json"));
        RemoveFile(last / L"status.json");
    }
    // The tests have administrator rights, and so have the programs that they start.
    EXPECT_THAT(
        records,
        ElementsAre(
            FormatStatusRecord("failed", "Missing update argument", 1),
            FormatStatusRecord(
                "failed", "Start the application without administrator privileges before updating",
                1)));
}

TEST_F(Executable, RunsTheSelfTestEvenWhenTheWorkerIsAskedForToo) {
    for (const wchar_t* flags :
         {L"--self-test ", L"--self-test --worker ", L"--broker --self-test "}) {
        ExpectExitCode(flags + JobDir(), 0);
        EXPECT_EQ(ReadFileContent(job / L"status.json"),
                  FormatStatusRecord("succeeded",
                                     "PASS: SHA256, Chinese/space paths, install failure rollback, "
                                     "account preservation",
                                     0));
        RemoveFile(job / L"status.json");
    }
    EXPECT_THAT(ReadTreeContent(current), IsEmpty());
}

TEST_F(Executable, ReportsTheFailureOfTheSelfTest) {
    const std::filesystem::path backup = job / L"backup";
    WriteFileContent(backup, "in the way");
    ExpectExitCode(L"--self-test " + JobDir(), 1);
    const std::string failure = ExpectFileSystemError(
        [&] { CreateDirectories(backup); }, "create_directories", ERROR_ALREADY_EXISTS, backup);
    EXPECT_EQ(ReadFileContent(job / L"status.json"), FormatStatusRecord("failed", failure, 1));
}

}  // namespace
}  // namespace updater
