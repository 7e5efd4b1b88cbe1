#include "faults/broker_scene.h"

#include <functional>
#include <string_view>

#include "faults/simulated_processes.h"
#include "fixtures/processes/simulated_time.h"
#include "fixtures/processes/windows_doubles.h"
#include "support/argument_quoting.h"
#include "support/file_system.h"
#include "support/status_file.h"
#include "support/text_conversion.h"
#include "support/updater_arguments.h"

namespace updater::faults {

namespace {

constexpr DWORD kApplication = 1000;
constexpr DWORD kApplicationElsewhere = 2000;
constexpr DWORD kWorker = 3000;
constexpr DWORD kRestartedApplication = 4000;

// The exit codes of a worker that is never told to go on, and of one that is. The latter is none of
// its own, to tell it from the one that the broker makes up when it cannot be read.
constexpr DWORD kWorkerGaveUp = 2;
constexpr DWORD kWorkerFailed = 3;

std::string YesOrNo(bool fact) {
    return fact ? "yes" : "no";
}

std::wstring CommandLine(const BrokerScene& scene) {
    return std::wstring(L"updater ") + kBrokerFlag + L' ' + kInstallDirOption + L' ' +
           QuoteArgument(scene.installDirectory.native()) + L' ' + kJobDirOption + L' ' +
           QuoteArgument(scene.jobDirectory.native()) + L' ' + kParentPidOption + L' ' +
           std::to_wstring(kApplication);
}

// Everything that stands between the broker and the real system, for one run.
struct BrokerRun {
    BrokerRun(const BrokerScene& laidScene, const BrokerCase& metCase);

    HANDLE OnCreateEvent(LPSECURITY_ATTRIBUTES security, BOOL manual, BOOL signalled, LPCWSTR name);
    BOOL OnShellExecute(SHELLEXECUTEINFOW* info);
    BOOL OnSetEvent(HANDLE event);
    void EndWorker(const char* state, DWORD exitCode);
    BOOL OnCreateProcess(LPCWSTR program, LPPROCESS_INFORMATION started);

    const BrokerScene& scene;
    const BrokerCase& met;
    std::wstring commandLine = CommandLine(scene);
    bool committed = false;
    std::string errorBox = "none";
    HANDLE ready = nullptr;
    HANDLE commit = nullptr;
    SimulatedTime time;
    SimulatedProcesses processes;

    ScopedReplacement<decltype(GetCommandLineW)> getCommandLine{
        doubles::getCommandLine, [this] { return commandLine.data(); }};
    ScopedReplacement<decltype(GetTokenInformation)> getTokenInformation{
        doubles::getTokenInformation, [](HANDLE token, TOKEN_INFORMATION_CLASS information,
                                         LPVOID buffer, DWORD size, PDWORD length) {
            const BOOL done = GetTokenInformation(token, information, buffer, size, length);
            static_cast<TOKEN_ELEVATION*>(buffer)->TokenIsElevated = 0;
            return done;
        }};
    ScopedReplacement<decltype(CreateEventW)> createEvent{
        doubles::createEvent, std::bind_front(&BrokerRun::OnCreateEvent, this)};
    ScopedReplacement<decltype(ShellExecuteExW)> shellExecute{
        doubles::shellExecuteEx, std::bind_front(&BrokerRun::OnShellExecute, this)};
    ScopedReplacement<decltype(SetEvent)> setEvent{doubles::setEvent,
                                                   std::bind_front(&BrokerRun::OnSetEvent, this)};
    ScopedReplacement<decltype(CreateProcessW)> createProcess{
        doubles::createProcess,
        [this](LPCWSTR program, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD,
               LPVOID, LPCWSTR, LPSTARTUPINFOW,
               LPPROCESS_INFORMATION started) { return OnCreateProcess(program, started); }};
    ScopedReplacement<decltype(MessageBoxW)> messageBox{doubles::messageBox,
                                                        [this](HWND, LPCWSTR text, LPCWSTR, UINT) {
                                                            errorBox = WideToUtf8(text);
                                                            return IDOK;
                                                        }};
};

BrokerRun::BrokerRun(const BrokerScene& laidScene, const BrokerCase& metCase)
    : scene(laidScene), met(metCase) {
    processes.Start(kApplication, scene.installDirectory / L"corvellan.exe");
    processes.Start(kApplicationElsewhere, scene.directory.path / L"corvellan.exe");
}

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
    time.After(1000, [this] { processes.End(kApplication); });
    return TRUE;
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

Outcome BrokerScene::Run(const BrokerCase& met, const Watcher& watch) const {
    RemoveTree(jobDirectory);
    CreateDirectories(jobDirectory);
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
