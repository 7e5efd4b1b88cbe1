// The process utilities when the system refuses, and the exact calls that they make: the system's
// functions are replaced at link time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/process_utilities.h"
#include "support/windows_api.h"

// After the Windows types that they need.
#include <objbase.h>
#include <tlhelp32.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "fixtures/application_names.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/expect_file_system_error.h"
#include "fixtures/file_content.h"
#include "fixtures/open_handles.h"
#include "fixtures/programs/program_report.h"
#include "fixtures/programs/running_program.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"

namespace updater {

namespace {

constexpr char kInaccessible[] = "Another application instance is inaccessible; close it first";
constexpr char kRunning[] = "Another application instance is running; close it first";

// Expects the action to fail with this message, twice, and to leave as many handles open as before.
void ExpectFailure(const std::function<void()>& action, const char* message) {
    ExpectNoHandleLeft([&] { EXPECT_THAT(action, RaisesError(message)); });
}

TEST(IsProcessElevatedFailure, ATokenThatCannotBeOpened) {
    const ScopedReplacement refusing(doubles::OpenProcessToken, [](HANDLE, DWORD, PHANDLE) {
        return FailWith(ERROR_ACCESS_DENIED);
    });
    ExpectFailure(IsProcessElevated, "Cannot inspect process token");
}

TEST(IsProcessElevatedFailure, ATokenThatCannotBeQueriedIsClosed) {
    const ScopedReplacement refusing(doubles::GetTokenInformation,
                                     [](HANDLE, TOKEN_INFORMATION_CLASS, LPVOID, DWORD, PDWORD) {
                                         return FailWith(ERROR_ACCESS_DENIED);
                                     });
    ExpectFailure(IsProcessElevated, "Cannot inspect elevation");
}

TEST(IsProcessElevatedFailure, TheTokenIsOnlyQueriedAndEveryValueButZeroMeansElevated) {
    const ScopedReplacement observedOpen(doubles::OpenProcessToken,
                                         [](HANDLE process, DWORD access, PHANDLE token) {
                                             EXPECT_EQ(process, GetCurrentProcess());
                                             EXPECT_EQ(access, 8U);
                                             return OpenProcessToken(process, access, token);
                                         });
    for (const DWORD value : std::initializer_list<DWORD>{0U, 1U, 2U, 0x80000000U}) {
        const ScopedReplacement answering(doubles::GetTokenInformation,
                                          [value](HANDLE, TOKEN_INFORMATION_CLASS information,
                                                  LPVOID buffer, DWORD bytes, PDWORD returned) {
                                              EXPECT_EQ(information, 20);
                                              EXPECT_EQ(bytes, 4U);
                                              std::memcpy(buffer, &value, sizeof(value));
                                              *returned = sizeof(value);
                                              return TRUE;
                                          });
        EXPECT_EQ(IsProcessElevated(), value != 0);
    }
}

TEST(CreateJobIdentityFailure, AGuidThatCannotBeMade) {
    const ScopedReplacement refusing(doubles::CoCreateGuid, [](GUID*) { return E_FAIL; });
    ExpectFailure(CreateJobIdentity, "Cannot create update job identity");
}

TEST(CreateJobIdentityFailure, ASuccessCodeOtherThanZeroIsNoFailure) {
    const ScopedReplacement answering(doubles::CoCreateGuid, [](GUID* identity) {
        *identity = {0x0ABCDEF1, 0x2345, 0x6789, {0xAB, 0xCD, 0xEF, 0x01, 0x23, 0x45, 0x67, 0x89}};
        return S_FALSE;
    });
    EXPECT_EQ(CreateJobIdentity(), L"{0ABCDEF1-2345-6789-ABCD-EF0123456789}");
}

TEST(GetProcessImagePathFailure, AQueryThatFails) {
    const ScopedReplacement refusing(
        doubles::QueryFullProcessImageNameW,
        [](HANDLE, DWORD, LPWSTR, PDWORD) { return FailWith(ERROR_ACCESS_DENIED); });
    ExpectFailure([] { GetProcessImagePath(GetCurrentProcess()); },
                  "Cannot inspect application process");
}

TEST(GetProcessImagePathFailure, TheLongestPathFitsAndIsCutToItsLength) {
    const ScopedReplacement answering(doubles::QueryFullProcessImageNameW,
                                      [](HANDLE, DWORD flags, LPWSTR text, PDWORD units) {
                                          EXPECT_EQ(flags, 0U);
                                          EXPECT_EQ(*units, 32768U);
                                          std::fill(text, text + 32767, L'x');
                                          *units = 32767;
                                          return TRUE;
                                      });
    EXPECT_EQ(GetProcessImagePath(GetCurrentProcess()), std::wstring(32767, L'x'));
}

struct EnsureNoOtherInstanceFailure : testing::Test {
    void Scan() const { EnsureNoOtherInstance(application, 0); }

    TemporaryDirectory directory;
    std::filesystem::path application = directory.path / kExecutableName;
};

TEST_F(EnsureNoOtherInstanceFailure, ASnapshotThatCannotBeTaken) {
    const ScopedReplacement refusing(doubles::CreateToolhelp32Snapshot, [](DWORD, DWORD) {
        return FailWith(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE);
    });
    ExpectFailure([this] { Scan(); }, "Cannot enumerate running applications");
}

TEST_F(EnsureNoOtherInstanceFailure, ASnapshotThatCannotBeReadIsClosed) {
    const ScopedReplacement refusing(doubles::Process32FirstW, [](HANDLE, LPPROCESSENTRY32W) {
        return FailWith(ERROR_ACCESS_DENIED);
    });
    ExpectFailure([this] { Scan(); }, "Cannot enumerate running applications");
}

TEST_F(EnsureNoOtherInstanceFailure, TheSnapshotIsOfAllProcessesInEntriesOfTheWideForm) {
    int snapshots = 0;
    const ScopedReplacement observedSnapshot(doubles::CreateToolhelp32Snapshot,
                                             [&snapshots](DWORD flags, DWORD processId) {
                                                 ++snapshots;
                                                 EXPECT_EQ(flags, 2U);
                                                 EXPECT_EQ(processId, 0U);
                                                 return CreateToolhelp32Snapshot(flags, processId);
                                             });
    int readings = 0;
    const ScopedReplacement observedFirst(
        doubles::Process32FirstW, [&readings](HANDLE snapshot, LPPROCESSENTRY32W entry) {
            ++readings;
            PROCESSENTRY32W expected{};
            expected.dwSize = 568;
            EXPECT_EQ(std::memcmp(entry, &expected, sizeof(expected)), 0);
            return Process32FirstW(snapshot, entry);
        });
    Scan();
    EXPECT_EQ(snapshots, 1);
    EXPECT_EQ(readings, 1);
}

TEST_F(EnsureNoOtherInstanceFailure, TheFirstAndTheLastProcessCountToo) {
    const RunningProgram program(application);
    const auto entryOf = [&program](std::wstring_view name) {
        PROCESSENTRY32W entry{};
        entry.dwSize = sizeof(entry);
        entry.th32ProcessID = program.processId;
        name.copy(std::data(entry.szExeFile), std::size(entry.szExeFile) - 1);
        return entry;
    };
    const PROCESSENTRY32W instance = entryOf(kExecutableName);
    const PROCESSENTRY32W other = entryOf(L"other.exe");

    for (const bool instanceFirst : {true, false}) {
        int calls = 0;
        const ScopedReplacement first(doubles::Process32FirstW,
                                      [&](HANDLE, LPPROCESSENTRY32W entry) {
                                          calls = 0;
                                          *entry = instanceFirst ? instance : other;
                                          return TRUE;
                                      });
        const ScopedReplacement next(doubles::Process32NextW, [&](HANDLE, LPPROCESSENTRY32W entry) {
            *entry = instanceFirst ? other : instance;
            return ++calls == 1 ? TRUE : FALSE;
        });
        ExpectFailure([this] { Scan(); }, kRunning);
    }
}

TEST_F(EnsureNoOtherInstanceFailure, AnInstanceThatCannotBeOpenedBlocksWhereverItLives) {
    for (const wchar_t* place : {kExecutableName, L"elsewhere\\" IDENTITY_EXECUTABLE}) {
        const RunningProgram program(directory.path / place);
        const ScopedReplacement refusing(
            doubles::OpenProcess, [&program](DWORD access, BOOL inherit, DWORD processId) {
                EXPECT_EQ(access, 0x101000U);
                EXPECT_EQ(inherit, FALSE);
                EXPECT_EQ(processId, program.processId) << "only an instance is opened";
                return FailWith(ERROR_ACCESS_DENIED, HANDLE{nullptr});
            });
        ExpectFailure([this] { Scan(); }, kInaccessible);
    }
}

TEST_F(EnsureNoOtherInstanceFailure, TheAllowedInstanceIsNotEvenOpened) {
    const RunningProgram program(application);
    const ScopedReplacement refusing(doubles::OpenProcess,
                                     [](DWORD, BOOL, DWORD) { return HANDLE{nullptr}; });
    EXPECT_NO_THROW(EnsureNoOtherInstance(application, program.processId));
}

TEST_F(EnsureNoOtherInstanceFailure, AnInstanceThatEndsBetweenSnapshotAndCheckIsSkipped) {
    const RunningProgram program(application);
    bool ended = false;
    const ScopedReplacement endingFirst(doubles::OpenProcess,
                                        [&](DWORD access, BOOL inherit, DWORD processId) {
                                            program.End();
                                            ended = true;
                                            return OpenProcess(access, inherit, processId);
                                        });
    EXPECT_NO_THROW(Scan());
    EXPECT_TRUE(ended) << "the snapshot held the instance";
}

TEST_F(EnsureNoOtherInstanceFailure, OnlyASatisfiedWaitOfNoTimeMeansEnded) {
    const RunningProgram program(application);
    for (const DWORD result : std::initializer_list<DWORD>{static_cast<DWORD>(WAIT_TIMEOUT),
                                                           static_cast<DWORD>(WAIT_FAILED)}) {
        const ScopedReplacement answering(doubles::WaitForSingleObject,
                                          [result](HANDLE, DWORD milliseconds) {
                                              EXPECT_EQ(milliseconds, 0U);
                                              return result;
                                          });
        ExpectFailure([this] { Scan(); }, kRunning);
    }
}

TEST_F(EnsureNoOtherInstanceFailure, AnInstanceWhoseImagePathCannotBeRead) {
    const RunningProgram program(application);
    const ScopedReplacement refusing(
        doubles::QueryFullProcessImageNameW,
        [](HANDLE, DWORD, LPWSTR, PDWORD) { return FailWith(ERROR_ACCESS_DENIED); });
    ExpectFailure([this] { Scan(); }, "Cannot inspect application process");
}

TEST_F(EnsureNoOtherInstanceFailure, PathsThatCannotBeResolvedTheApplicationsFirst) {
    const RunningProgram program(application);
    const RunningProgram elsewhere(directory.path / L"elsewhere" / kExecutableName);
    const auto resolveAllBut = [](const std::filesystem::path& refused) {
        return [refused](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                         DWORD disposition, DWORD flags, HANDLE file) {
            if (refused.empty() || refused == path) {
                return FailWith(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE);
            }
            return CreateFileW(path, access, share, security, disposition, flags, file);
        };
    };
    const std::filesystem::path installed = directory.path / L"installed" / kExecutableName;
    WriteFileContent(installed, "");
    ExpectNoHandleLeft([&] {
        const ScopedReplacement refusing(doubles::CreateFileW, resolveAllBut(elsewhere.path));
        ExpectFileSystemError([&] { EnsureNoOtherInstance(installed, program.processId); },
                              "weakly_canonical", ERROR_ACCESS_DENIED, elsewhere.path);
    });
    ExpectNoHandleLeft([&] {
        const std::filesystem::path all;
        const ScopedReplacement refusing(doubles::CreateFileW, resolveAllBut(all));
        ExpectFileSystemError([&] { EnsureNoOtherInstance(installed, 0); }, "weakly_canonical",
                              ERROR_ACCESS_DENIED, installed);
        ExpectFileSystemError([&] { IsSamePath(application, installed); }, "weakly_canonical",
                              ERROR_ACCESS_DENIED, installed);
    });
}

bool IsZeroed(const void* object, std::size_t bytes) {
    const auto* first = static_cast<const unsigned char*>(object);
    return std::all_of(first, first + bytes, [](unsigned char byte) { return byte == 0; });
}

struct LaunchProcessFailure : testing::Test {
    TemporaryDirectory directory;
    std::filesystem::path program = ReportingProgram();
};

TEST_F(LaunchProcessFailure, TheProcessIsCreatedWithExactlyTheseArguments) {
    const std::filesystem::path report = directory.path / L"report";
    for (const std::wstring& arguments : {ReportArguments(report, 0) + L" x", std::wstring()}) {
        int calls = 0;
        const ScopedReplacement observed(
            doubles::CreateProcessW,
            [&](LPCWSTR application, LPWSTR commandLine, LPSECURITY_ATTRIBUTES processSecurity,
                LPSECURITY_ATTRIBUTES threadSecurity, BOOL inherit, DWORD flags, LPVOID environment,
                LPCWSTR workingDirectory, LPSTARTUPINFOW startup, LPPROCESS_INFORMATION created) {
                ++calls;
                EXPECT_EQ(application, program.native());
                EXPECT_EQ(commandLine, L'"' + program.native() + L"\" " + arguments);
                EXPECT_EQ(processSecurity, nullptr);
                EXPECT_EQ(threadSecurity, nullptr);
                EXPECT_EQ(inherit, FALSE);
                EXPECT_EQ(flags, 0x08000000U);
                EXPECT_EQ(environment, nullptr);
                EXPECT_EQ(workingDirectory, directory.path.native());
                EXPECT_EQ(startup->cb, sizeof(STARTUPINFOW));
                STARTUPINFOW rest = *startup;
                rest.cb = 0;
                EXPECT_TRUE(IsZeroed(&rest, sizeof(rest)));
                EXPECT_TRUE(IsZeroed(created, sizeof(*created)));
                // The system may write into the command line while it works.
                const wchar_t first = commandLine[0];
                commandLine[0] = L'#';
                commandLine[0] = first;
                return CreateProcessW(application, commandLine, processSecurity, threadSecurity,
                                      inherit, flags, environment, workingDirectory, startup,
                                      created);
            });
        LaunchProcess(program, arguments, directory.path, LaunchWait::UntilExit);
        EXPECT_EQ(calls, 1) << "nothing is retried";
    }
}

TEST_F(LaunchProcessFailure, AFailureCarriesTheErrorNumberInDecimal) {
    for (const DWORD error : std::initializer_list<DWORD>{0U, 5U, 740U, 1223U, 0x80070005U}) {
        const ScopedReplacement refusing(
            doubles::CreateProcessW,
            [&](LPCWSTR, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD, LPVOID,
                LPCWSTR, LPSTARTUPINFOW, LPPROCESS_INFORMATION) { return FailWith(error); });
        ExpectFailure([&] { LaunchProcess(program, L"", directory.path, LaunchWait::UntilExit); },
                      ("Process launch failed: " + std::to_string(error)).c_str());
    }
}

TEST(AwaitExitCodeFailure, TheWaitHasNoLimitAndAnExitCodeThatCannotBeReadIsOne) {
    int waits = 0;
    const ScopedReplacement observed(doubles::WaitForSingleObject,
                                     [&waits](auto process, DWORD milliseconds) {
                                         ++waits;
                                         EXPECT_EQ(process, GetCurrentProcess());
                                         EXPECT_EQ(milliseconds, INFINITE);
                                         return WAIT_OBJECT_0;
                                     });
    EXPECT_EQ(AwaitExitCode(GetCurrentProcess()), 259U) << "still active";
    EXPECT_EQ(waits, 1);
    const ScopedReplacement refusing(doubles::GetExitCodeProcess,
                                     [](HANDLE, LPDWORD) { return FailWith(ERROR_ACCESS_DENIED); });
    EXPECT_EQ(AwaitExitCode(GetCurrentProcess()), 1U);
    EXPECT_EQ(waits, 2);
}

TEST(IsSignalledWithinFailure, OnlyASatisfiedWaitCounts) {
    for (const DWORD result : std::initializer_list<DWORD>{0x00U, 0x80U, 0x102U, 0xFFFFFFFFU}) {
        const ScopedReplacement answering(doubles::WaitForSingleObject,
                                          [result](HANDLE, DWORD milliseconds) {
                                              EXPECT_EQ(milliseconds, 250U);
                                              return result;
                                          });
        EXPECT_EQ(IsSignalledWithin(GetCurrentProcess(), 250), result == WAIT_OBJECT_0);
    }
}

TEST_F(LaunchProcessFailure, AWaitingLaunchWaitsWithoutALimit) {
    std::vector<DWORD> waits;
    const ScopedReplacement observed(doubles::WaitForSingleObject,
                                     [&](HANDLE process, DWORD milliseconds) {
                                         waits.push_back(milliseconds);
                                         return WaitForSingleObject(process, milliseconds);
                                     });
    LaunchProcess(program, L"", directory.path, LaunchWait::UntilExit);
    EXPECT_THAT(waits, testing::ElementsAre(INFINITE));
}

TEST_F(LaunchProcessFailure, ALaunchWithoutWaitingNeitherWaitsNorReadsTheExitCode) {
    const ScopedReplacement noWait(doubles::WaitForSingleObject, [](HANDLE, DWORD) {
        ADD_FAILURE() << "waited for";
        return static_cast<DWORD>(WAIT_FAILED);
    });
    const ScopedReplacement noExitCode(doubles::GetExitCodeProcess, [](HANDLE, LPDWORD) {
        ADD_FAILURE() << "read";
        return FALSE;
    });
    EXPECT_EQ(LaunchProcess(program, L"", directory.path.parent_path(), LaunchWait::None), 0U);
}

TEST_F(LaunchProcessFailure, AnExitCodeThatCannotBeReadIsOne) {
    const ScopedReplacement refusing(doubles::GetExitCodeProcess,
                                     [](HANDLE, LPDWORD) { return FailWith(ERROR_ACCESS_DENIED); });
    ExpectNoHandleLeft([this] {
        EXPECT_EQ(LaunchProcess(program, ReportArguments(directory.path / L"report", 0),
                                directory.path, LaunchWait::UntilExit),
                  1U);
    });
}

}  // namespace

}  // namespace updater
