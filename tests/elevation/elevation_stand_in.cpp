// Stands in for the prompt that asks for administrator rights. Wine shows none: with Wine 8 the
// shell's "runas" verb starts a program with the caller's token, with Wine 10 with the elevated
// one. The stand-in has the updater's place and name, P:
//
//   P --broker ...  runs the real updater as P, unelevated. While it runs, P is the stand-in again,
//                   so the updater, which starts P elevated, starts the stand-in.
//   P --worker ...  starts the real updater elevated, with the same arguments.
//
// Either way it waits for the updater's end and returns its exit code. Broker and worker are the
// real, unchanged updater.

#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "app/command_line.h"
#include "elevation/consent.h"
#include "elevation/program_start.h"
#include "support/handle.h"
#include "support/handshake.h"
#include "support/process_utilities.h"
#include "support/text_conversion.h"
#include "support/updater_arguments.h"
#include "support/windows_api.h"

namespace updater {

namespace {

struct StandIn {
    std::filesystem::path ownPath;
    std::filesystem::path realPath;
    std::filesystem::path consentPath;
};

std::filesystem::path WithSuffix(const std::filesystem::path& path, const wchar_t* suffix) {
    return path.native() + suffix;
}

StandIn LocateStandIn() {
    const std::filesystem::path own = GetProcessImagePath(GetCurrentProcess());
    return {own, WithSuffix(own, kRealSuffix), WithSuffix(own, kConsentSuffix)};
}

// Returns the command line after the program, unchanged.
std::wstring OwnArguments() {
    const std::wstring line = GetCommandLineW();
    const bool quoted = line.starts_with(L'"');
    const std::size_t end = quoted ? line.find(L'"', 1) + 1 : line.find_first_of(L" \t");
    const std::size_t begin = line.find_first_not_of(L" \t", end);
    return end == std::wstring::npos || begin == std::wstring::npos ? std::wstring()
                                                                    : line.substr(begin);
}

void Move(const std::filesystem::path& source, const std::filesystem::path& target) {
    if (MoveFileExW(source.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING) == 0) {
        RaiseLastError("Cannot rename the updater");
    }
}

void Copy(const std::filesystem::path& source, const std::filesystem::path& target) {
    if (CopyFileW(source.c_str(), target.c_str(), FALSE) == 0) {
        RaiseLastError("Cannot copy the updater");
    }
}

// The image path of a process is the one that it was started under, whatever becomes of the file
// afterwards.
std::uint32_t RunBrokerUnderOwnName(const StandIn& standIn) {
    Move(standIn.ownPath, standIn.consentPath);
    Copy(EnvironmentVariable(kRealUpdaterVariable), standIn.ownPath);
    const StartedProgram broker =
        StartProgram({standIn.ownPath, OwnArguments(), {}, StartToken::Own, StartState::Suspended});
    Move(standIn.ownPath, standIn.realPath);
    Copy(standIn.consentPath, standIn.ownPath);
    ResumeThread(broker.thread.get());
    return AwaitExitCode(broker.process.get());
}

// A worker whose stand-in is ended must not run on by itself. What the worker starts, though, must
// outlive it as it does without the stand-in.
UniqueHandle EndTogether(HANDLE process) {
    UniqueHandle job = OwnHandle(CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags =
        JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE | JOB_OBJECT_LIMIT_SILENT_BREAKAWAY_OK;
    if (!job ||
        SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits,
                                sizeof(limits)) == 0 ||
        AssignProcessToJobObject(job.get(), process) == 0) {
        RaiseLastError("Cannot tie the worker to the stand-in");
    }
    return job;
}

void SignalEvent(const std::wstring& name) {
    const UniqueHandle event = OwnHandle(OpenEventW(EVENT_MODIFY_STATE, FALSE, name.c_str()));
    if (!event || SetEvent(event.get()) == 0) {
        RaiseLastError("Cannot signal " + WideToUtf8(name));
    }
}

void AwaitEvent(const std::wstring& name) {
    const UniqueHandle event = OwnHandle(OpenEventW(SYNCHRONIZE, FALSE, name.c_str()));
    if (!event || WaitForSingleObject(event.get(), INFINITE) != WAIT_OBJECT_0) {
        RaiseLastError("Cannot wait for " + WideToUtf8(name));
    }
}

void AwaitAnswer() {
    const std::wstring baseName = EnvironmentVariable(kConsentEventVariable);
    if (!baseName.empty()) {
        SignalEvent(AskedEventName(baseName));
        AwaitEvent(AnsweredEventName(baseName));
    }
}

void AwaitBeginning() {
    const std::wstring baseName = EnvironmentVariable(kConsentEventVariable);
    if (!baseName.empty()) {
        SignalEvent(StartedEventName(baseName));
        AwaitEvent(BeginEventName(baseName));
    }
}

std::uint32_t RunWorkerWith(StartToken token, const StandIn& standIn) {
    const StartedProgram worker =
        StartProgram({standIn.realPath, OwnArguments(), {}, token, StartState::Suspended});
    const UniqueHandle job = EndTogether(worker.process.get());
    AwaitBeginning();
    ResumeThread(worker.thread.get());
    return AwaitExitCode(worker.process.get());
}

void TellHandshake(const UpdaterArguments& arguments, const StandIn& standIn) {
    std::ofstream(WithSuffix(standIn.ownPath, kHandshakeSuffix), std::ios::binary)
        << WideToUtf8(RequireArgument(arguments, kEventOption));
}

std::uint32_t AnswerRequest(const UpdaterArguments& arguments, const StandIn& standIn) {
    TellHandshake(arguments, standIn);
    AwaitAnswer();
    const std::wstring consent = EnvironmentVariable(kConsentVariable);
    if (consent.empty() || consent == kConsentGranted) {
        return RunWorkerWith(StartToken::Elevated, standIn);
    }
    if (consent == kConsentWithoutRights) {
        return RunWorkerWith(StartToken::Limited, standIn);
    }
    if (consent == kConsentHelperDies) {
        return kHelperDeathCode;
    }
    if (consent == kConsentHelperHangsReady) {
        SignalEvent(ReadyEventName(RequireArgument(arguments, kEventOption)));
    } else if (consent != kConsentHelperHangs) {
        throw std::runtime_error("Unknown value of CORVELLAN_CONSENT");
    }
    Sleep(INFINITE);
    return kStandInFailed;
}

int RunStandIn() {
    const StandIn standIn = LocateStandIn();
    try {
        const UpdaterArguments arguments = ParseUpdaterArguments();
        return static_cast<int>(arguments.contains(kWorkerFlag) ? AnswerRequest(arguments, standIn)
                                                                : RunBrokerUnderOwnName(standIn));
    } catch (const std::exception& failure) {
        std::ofstream(WithSuffix(standIn.ownPath, kFailureSuffix)) << failure.what() << '\n';
        return kStandInFailed;
    }
}

}  // namespace

}  // namespace updater

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    if (SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32) == 0) {
        return updater::kStandInFailed;
    }
    return updater::RunStandIn();
}
