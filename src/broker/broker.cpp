#include "broker/broker.h"

#include "support/windows_api.h"

// After the Windows types that they need.
#include <shellapi.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "broker/default_access.h"
#include "broker/worker_parameters.h"
#include "support/application_identity.h"
#include "support/exit_code.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/handshake.h"
#include "support/number_text.h"
#include "support/process_utilities.h"
#include "support/status_file.h"

namespace updater {

namespace {

// The longest time that a cancel marker or the worker's end goes unnoticed, in milliseconds.
constexpr DWORD kPollingInterval = 250;

// An entry of this name in the job directory, made by the application, cancels the update.
constexpr wchar_t kCancelMarker[] = L"cancel";

struct BrokerOptions {
    std::filesystem::path jobDirectory;
    std::filesystem::path installDirectory;
    std::uint32_t parentProcessId = 0;
};

struct WorkerLaunch {
    bool started;
    /// Null also when the shell started the worker but handed out no process.
    UniqueHandle process;
    /// The Windows error number of a launch that failed.
    DWORD error;
};

enum class ExitWait { ApplicationExited, CancelRequested, WorkerEnded, TimedOut };

BrokerOptions ReadBrokerOptions(const UpdaterArguments& arguments) {
    BrokerOptions options;
    options.jobDirectory = RequireArgument(arguments, kJobDirOption);
    options.installDirectory = RequireArgument(arguments, kInstallDirOption);
    options.parentProcessId = ParseUnsigned32(RequireArgument(arguments, kParentPidOption));
    return options;
}

HandshakeEvents CreateHandshakeEvents(const std::wstring& baseName) {
    HandshakeEvents events;
    events.ready = OwnHandle(CreateEventW(nullptr, TRUE, FALSE, ReadyEventName(baseName).c_str()));
    events.commit =
        OwnHandle(CreateEventW(nullptr, TRUE, FALSE, CommitEventName(baseName).c_str()));
    if (!events.ready || !events.commit) {
        throw std::runtime_error("Cannot initialize update handshake");
    }
    return events;
}

WorkerLaunch LaunchWorkerElevated(const std::wstring& parameters) {
    const std::wstring ownExecutable = GetProcessImagePath(GetCurrentProcess());
    SHELLEXECUTEINFOW launch{};
    launch.cbSize = sizeof(launch);
    launch.fMask = SEE_MASK_NOCLOSEPROCESS;
    launch.lpVerb = L"runas";
    launch.lpFile = ownExecutable.c_str();
    launch.lpParameters = parameters.c_str();
    launch.nShow = SW_HIDE;
    if (ShellExecuteExW(&launch) == 0) {
        return {false, nullptr, GetLastError()};
    }
    return {true, OwnHandle(launch.hProcess), ERROR_SUCCESS};
}

int ReportLaunchFailure(const std::filesystem::path& jobDirectory, DWORD error) {
    const auto exitCode = static_cast<std::int32_t>(error);
    if (error == ERROR_CANCELLED) {
        WriteUpdateStatus(jobDirectory, kStateCancelled, "Administrator authorization cancelled",
                          exitCode);
        return kExitCancelled;
    }
    WriteUpdateStatus(jobDirectory, kStateFailed, "Authorization failed", exitCode);
    return kExitFailed;
}

bool AwaitReady(HANDLE ready, HANDLE worker) {
    const std::array<HANDLE, 2> handles = {ready, worker};
    return WaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), FALSE,
                                  kHandshakeLimit) == WAIT_OBJECT_0;
}

int ReportWorkerNotReady(const std::filesystem::path& jobDirectory) {
    // A worker that got far enough to report its failure knows better.
    if (!PathExists(jobDirectory / kStatusFile)) {
        WriteUpdateStatus(jobDirectory, kStateFailed, "Upgrade helper did not become ready",
                          kExitFailed);
    }
    return kExitFailed;
}

ExitWait AwaitApplicationExit(const std::filesystem::path& jobDirectory, HANDLE worker,
                              HANDLE parent) {
    const ULONGLONG deadline = GetTickCount64() + kHandshakeLimit;
    while (GetTickCount64() < deadline) {
        if (PathExists(jobDirectory / kCancelMarker)) {
            return ExitWait::CancelRequested;
        }
        if (IsSignalledWithin(worker, 0)) {
            return ExitWait::WorkerEnded;
        }
        if (IsSignalledWithin(parent, kPollingInterval)) {
            return ExitWait::ApplicationExited;
        }
    }
    return ExitWait::TimedOut;
}

int EndWithoutCommit(const std::filesystem::path& jobDirectory, ExitWait outcome) {
    switch (outcome) {
        case ExitWait::CancelRequested:
            return kExitCancelled;
        case ExitWait::TimedOut:
            WriteUpdateStatus(jobDirectory, kStateCancelled,
                              "Application did not exit; update cancelled", kExitCancelled);
            return kExitCancelled;
        default:
            return kExitFailed;
    }
}

int CommitAndAwaitWorker(HANDLE commit, HANDLE worker) {
    SetEvent(commit);
    return static_cast<int>(AwaitExitCode(worker));
}

void ShowFailureReport(const std::filesystem::path& jobDirectory) {
    MessageBoxW(nullptr, ReadStatusReport(jobDirectory).c_str(), kErrorBoxTitle,
                MB_OK | MB_ICONERROR);
}

}  // namespace

int RunBroker(const UpdaterArguments& arguments) {
    if (IsProcessElevated()) {
        throw std::runtime_error(
            "Start the application without administrator privileges before updating");
    }
    const BrokerOptions options = ReadBrokerOptions(arguments);
    const std::filesystem::path applicationPath = ApplicationPath(options.installDirectory);
    const UniqueHandle parent =
        OpenProcessOf(applicationPath, options.parentProcessId,
                      "Update parent does not match installation directory");
    EnsureNoOtherInstance(applicationPath, options.parentProcessId);

    const std::wstring eventBaseName = kHandshakePrefix + CreateJobIdentity();
    // The prompt may be answered with another account's password. The worker then runs as an
    // administrator whom the user's own default list does not let set an event.
    static_cast<void>(GrantAdministratorsAccessByDefault());
    const HandshakeEvents events = CreateHandshakeEvents(eventBaseName);
    const WorkerLaunch worker =
        LaunchWorkerElevated(BuildWorkerParameters(arguments, eventBaseName));
    if (!worker.started) {
        return ReportLaunchFailure(options.jobDirectory, worker.error);
    }
    if (!AwaitReady(events.ready.get(), worker.process.get())) {
        return ReportWorkerNotReady(options.jobDirectory);
    }

    WriteUpdateStatus(options.jobDirectory, kStateReady,
                      "Authorized helper is waiting for application exit", kExitSucceeded);
    const ExitWait outcome =
        AwaitApplicationExit(options.jobDirectory, worker.process.get(), parent.get());
    if (outcome != ExitWait::ApplicationExited) {
        return EndWithoutCommit(options.jobDirectory, outcome);
    }
    const int exitCode = CommitAndAwaitWorker(events.commit.get(), worker.process.get());

    LaunchProcess(applicationPath, L"", options.installDirectory, LaunchWait::None);
    if (exitCode != kExitSucceeded) {
        ShowFailureReport(options.jobDirectory);
    }
    return exitCode;
}

}  // namespace updater
