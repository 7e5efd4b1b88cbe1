#include "faults/swept_broker.h"

#include <functional>
#include <string_view>

#include "faults/simulated_updater.h"
#include "fixtures/default_access_list.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/updater_command_line.h"
#include "support/file_system.h"
#include "support/status_file.h"
#include "support/text_conversion.h"
#include "support/updater_arguments.h"

namespace updater::faults {

namespace {

constexpr DWORD kWorker = 3000;
constexpr DWORD kRestartedApplication = 4000;

// The exit codes of a worker that is never told to go on, and of one that is. The latter is none of
// its own, to tell it from the one that the broker makes up when it cannot be read.
constexpr DWORD kWorkerGaveUp = 2;
constexpr DWORD kWorkerFailed = 3;

std::string YesOrNo(bool fact) {
    return fact ? "yes" : "no";
}

std::wstring CommandLine(const SweptBroker& scene) {
    return CommandLineOf(kBrokerFlag, {{kInstallDirOption, scene.installDirectory},
                                       {kJobDirOption, scene.jobDirectory},
                                       {kParentPidOption, std::to_wstring(kApplication)}});
}

// Everything that stands between the broker and the real system, for one run.
struct BrokerRun : SimulatedUpdater {
    BrokerRun(const SweptBroker& laidScene, const BrokerCase& metCase);

    HANDLE OnCreateEvent(LPSECURITY_ATTRIBUTES security, BOOL manual, BOOL signalled, LPCWSTR name);
    BOOL OnShellExecute(SHELLEXECUTEINFOW* info);
    void PlanWhatTheApplicationDoes();
    BOOL OnSetEvent(HANDLE event);
    void EndWorker(const char* state, DWORD exitCode);
    BOOL OnCreateProcess(LPCWSTR program, LPPROCESS_INFORMATION started);

    const SweptBroker& scene;
    const BrokerCase& met;
    /// The broker extends it, each time anew.
    ScopedDefaultAccessList accessList{kUsersAccessList};
    bool committed = false;
    ULONGLONG slept = 0;
    std::string errorBox = "none";
    HANDLE ready = nullptr;
    HANDLE commit = nullptr;

    ScopedReplacement<decltype(GetTickCount64)> clock{doubles::GetTickCount64,
                                                      [this] { return time.now + slept; }};
    ScopedReplacement<decltype(CreateEventW)> createEvent{
        doubles::CreateEventW, std::bind_front(&BrokerRun::OnCreateEvent, this)};
    ScopedReplacement<decltype(ShellExecuteExW)> shellExecute{
        doubles::ShellExecuteExW, std::bind_front(&BrokerRun::OnShellExecute, this)};
    ScopedReplacement<decltype(SetEvent)> setEvent{doubles::SetEvent,
                                                   std::bind_front(&BrokerRun::OnSetEvent, this)};
    ScopedReplacement<decltype(CreateProcessW)> createProcess{
        doubles::CreateProcessW,
        [this](LPCWSTR program, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD,
               LPVOID, LPCWSTR, LPSTARTUPINFOW,
               LPPROCESS_INFORMATION started) { return OnCreateProcess(program, started); }};
    ScopedReplacement<decltype(MessageBoxW)> messageBox{doubles::MessageBoxW,
                                                        [this](HWND, LPCWSTR text, LPCWSTR, UINT) {
                                                            errorBox = WideToUtf8(text);
                                                            return IDOK;
                                                        }};
};

BrokerRun::BrokerRun(const SweptBroker& laidScene, const BrokerCase& metCase)
    : SimulatedUpdater(CommandLine(laidScene), Rights::Limited, laidScene.installDirectory),
      scene(laidScene),
      met(metCase) {}

HANDLE BrokerRun::OnCreateEvent(LPSECURITY_ATTRIBUTES security, BOOL manual, BOOL signalled,
                                LPCWSTR name) {
    HANDLE event = CreateEventW(security, manual, signalled, name);
    const std::wstring_view text = name == nullptr ? L"" : name;
    if (text.ends_with(L"-ready")) {
        ready = event;
    } else if (text.ends_with(L"-commit")) {
        commit = event;
    }
    return event;
}

// The worker, from its start: it gives up when it is not told to go on within three minutes.
BOOL BrokerRun::OnShellExecute(SHELLEXECUTEINFOW* info) {
    if (!met.promptIsGranted) {
        SetLastError(ERROR_CANCELLED);
        return FALSE;
    }
    processes.Start(kWorker, info->lpFile);
    info->hProcess = processes.Open(kWorker);
    time.After(240'000, [this] {
        if (!committed) {
            EndWorker("cancelled", kWorkerGaveUp);
        }
    });
    if (!met.workerBecomesReady) {
        processes.End(kWorker, 1);
        return TRUE;
    }
    WriteUpdateStatus(scene.jobDirectory, kStateAuthorized, "Administrator authorization accepted",
                      0);
    SetEvent(ready);
    PlanWhatTheApplicationDoes();
    return TRUE;
}

void BrokerRun::PlanWhatTheApplicationDoes() {
    if (met.applicationExits) {
        time.After(1000, [this] { processes.End(kApplication); });
    } else {
        // Looking for it hundreds of times more would make hundreds of calls more to sweep.
        time.After(1000, [this] { slept = 180'000; });
    }
}

BOOL BrokerRun::OnSetEvent(HANDLE event) {
    const BOOL done = SetEvent(event);
    if (commit != nullptr && event == commit) {
        committed = true;
        time.After(60'000, [this] { EndWorker("failed", kWorkerFailed); });
    }
    return done;
}

void BrokerRun::EndWorker(const char* state, DWORD exitCode) {
    WriteUpdateStatus(scene.jobDirectory, state, kWorkerMessage, 1);
    processes.End(kWorker, exitCode);
}

BOOL BrokerRun::OnCreateProcess(LPCWSTR program, LPPROCESS_INFORMATION started) {
    processes.Start(kRestartedApplication, program);
    started->hProcess = processes.Open(kRestartedApplication);
    started->hThread = processes.Open(kRestartedApplication);
    return TRUE;
}

}  // namespace

void SweptBroker::Cancel() {
    CreateDirectories(jobDirectory);
    CreateDirectories(directory.path / L"elsewhere");
    cancelMarker.emplace(jobDirectory / L"cancel", directory.path / L"elsewhere");
}

Outcome SweptBroker::Run(const BrokerCase& met, const Watcher& watch) const {
    CreateDirectories(jobDirectory);
    for (const wchar_t* file : {kStatusFile, L"status.tmp"}) {
        DeleteFileW((jobDirectory / file).c_str());
    }
    CreateDirectories(installDirectory);
    Outcome outcome;
    {
        BrokerRun run(*this, met);
        watch([&outcome] { outcome[kEnd] = EndOfUpdater(); });
        outcome[kCommitted] = YesOrNo(run.committed);
        outcome[kRestarted] = YesOrNo(run.processes.processes.contains(kRestartedApplication));
        outcome[kErrorBox] = run.errorBox;
    }
    outcome[kStatus] = ReadStatus(jobDirectory);
    outcome[kOpenFiles] = FilesHeldOpen(directory.path);
    return outcome;
}

}  // namespace updater::faults
