#include "broker/broker_world.h"

#include <algorithm>

#include "support/file_system.h"
#include "support/handle.h"
#include "support/status_file.h"

namespace updater {

namespace {

HANDLE Duplicate(HANDLE handle) {
    HANDLE copy = nullptr;
    DuplicateHandle(GetCurrentProcess(), handle, GetCurrentProcess(), &copy, 0, FALSE,
                    DUPLICATE_SAME_ACCESS);
    return copy;
}

std::wstring TextOf(LPCWSTR text) {
    return text == nullptr ? L"" : text;
}

}  // namespace

BrokerWorld::BrokerWorld() {
    CreateDirectories(jobDirectory);
    arguments = {{kBrokerFlag, L"1"},
                 {kInstallDirOption, installDirectory},
                 {kInstallerOption, directory.path / L"setup 2.exe"},
                 {kJobDirOption, jobDirectory},
                 {kParentPidOption, std::to_wstring(application.id)},
                 {kSha256Option, std::wstring(64, L'a')},
                 {kSizeOption, L"1234"},
                 {kVersionOption, L"2.0.0.0"}};
    status.beforeMove = [this](const StatusRecord& record) {
        actions.push_back("write " + record.state);
        if (record.state == kStateReady && onReady) {
            onReady();
        }
        return record.state != faults.unwritableState;
    };
    processes.beforeStart = [this](const ProcessStart&) -> std::optional<DWORD> {
        actions.emplace_back("start application");
        return std::nullopt;
    };
}

BrokerWorld::~BrokerWorld() {
    for (const ProcessStart& start : processes.starts) {
        AwaitEndOfProcess(start.processId);
    }
}

void BrokerWorld::ReportAuthorized() {
    WriteUpdateStatus(jobDirectory, kStateAuthorized, "Administrator authorization accepted", 0);
    SetReadyEvent();
}

void BrokerWorld::SetReadyEvent() {
    const UniqueHandle ready =
        OwnHandle(OpenEventW(EVENT_MODIFY_STATE, FALSE, events.front().name.c_str()));
    SetEvent(ready.get());
}

void BrokerWorld::LetWorkerBeSilent() {
    onLaunch = nullptr;
}

void BrokerWorld::LetWorkerEndWith(UINT exitCode) {
    onReady = [this] { time.After(1000, [this] { application.End(); }); };
    onCommit = [this, exitCode] {
        time.After(3'600'000, [this, exitCode] { worker.End(exitCode); });
    };
}

bool BrokerWorld::Did(const std::string& action) const {
    return std::ranges::find(actions, action) != actions.end();
}

// The test program's own token may be a full one.
BOOL BrokerWorld::OnGetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS information,
                                        LPVOID buffer, DWORD size, PDWORD length) {
    if (information != TokenElevation) {
        return GetTokenInformation(token, information, buffer, size, length);
    }
    actions.emplace_back("query elevation");
    static_cast<TOKEN_ELEVATION*>(buffer)->TokenIsElevated = faults.elevated ? 1 : 0;
    *length = sizeof(TOKEN_ELEVATION);
    return TRUE;
}

HANDLE BrokerWorld::OnOpenProcess(DWORD access, BOOL inherit, DWORD processId) {
    if (processId == application.id) {
        constexpr DWORD kSynchronizeAndLimitedQuery = 0x101000;
        const bool expected = access == kSynchronizeAndLimitedQuery && inherit == FALSE;
        actions.emplace_back(expected ? "open parent" : "open parent with other rights");
    }
    if (processId != 0 && processId == faults.inaccessibleProcess) {
        return FailWith(ERROR_ACCESS_DENIED, HANDLE{nullptr});
    }
    return OpenProcess(access, inherit, processId);
}

BOOL BrokerWorld::OnQueryImageName(HANDLE process, DWORD flags, LPWSTR path, PDWORD length) {
    const DWORD processId = GetProcessId(process);
    if (processId == application.id) {
        actions.emplace_back("query parent's image");
        if (faults.parentUnreadable) {
            return FailWith(ERROR_GEN_FAILURE);
        }
    }
    if (processId == GetCurrentProcessId()) {
        actions.emplace_back("query own image");
        if (faults.ownImageUnreadable) {
            return FailWith(ERROR_GEN_FAILURE);
        }
    }
    return QueryFullProcessImageNameW(process, flags, path, length);
}

BOOL BrokerWorld::OnFirstProcess(HANDLE snapshot, LPPROCESSENTRY32W entry) {
    actions.emplace_back("list processes");
    return faults.processListUnreadable ? FailWith(ERROR_NO_MORE_FILES)
                                        : Process32FirstW(snapshot, entry);
}

HRESULT BrokerWorld::OnCreateGuid(GUID* identity) {
    actions.emplace_back("create identity");
    return faults.identityUnavailable ? E_FAIL : CoCreateGuid(identity);
}

HANDLE BrokerWorld::OnCreateEvent(LPSECURITY_ATTRIBUTES security, BOOL manual, BOOL signalled,
                                  LPCWSTR name) {
    const bool isReady = events.empty();
    actions.emplace_back(isReady ? "create ready event" : "create commit event");
    events.push_back({TextOf(name), security != nullptr, manual != 0, signalled != 0});
    const bool refused = isReady ? faults.readyEventUnavailable : faults.commitEventUnavailable;
    eventHandles.push_back(refused ? nullptr : CreateEventW(security, manual, signalled, name));
    return eventHandles.back();
}

BOOL BrokerWorld::OnShellExecute(SHELLEXECUTEINFOW* info) {
    actions.emplace_back("launch worker");
    launches.push_back(
        {*info, TextOf(info->lpVerb), TextOf(info->lpFile), TextOf(info->lpParameters)});
    if (faults.launchError) {
        return FailWith(*faults.launchError);
    }
    if (onLaunch) {
        onLaunch();
    }
    info->hProcess = faults.launchGivesNoHandle ? nullptr : Duplicate(worker.process.get());
    return TRUE;
}

BOOL BrokerWorld::OnSetEvent(HANDLE event) {
    const BOOL done = SetEvent(event);
    if (eventHandles.size() == 2 && event == eventHandles.back()) {
        actions.emplace_back("set commit event");
        if (onCommit) {
            onCommit();
        }
    }
    return done;
}

BOOL BrokerWorld::OnGetExitCode(HANDLE process, LPDWORD exitCode) {
    if (GetProcessId(process) == worker.id) {
        actions.emplace_back("read worker's exit code");
        if (faults.exitCodeUnreadable) {
            *exitCode = 77;
            return FailWith(ERROR_ACCESS_DENIED);
        }
    }
    return GetExitCodeProcess(process, exitCode);
}

BOOL BrokerWorld::OnGetFileAttributes(LPCWSTR file, GET_FILEEX_INFO_LEVELS level,
                                      LPVOID data) const {
    if (!faults.uninspectableEntry.empty() && file == jobDirectory / faults.uninspectableEntry) {
        return FailWith(ERROR_ACCESS_DENIED);
    }
    return GetFileAttributesExW(file, level, data);
}

int BrokerWorld::OnMessageBox(HWND owner, LPCWSTR text, LPCWSTR title, UINT style) {
    actions.emplace_back("show error box");
    errorBoxes.push_back({owner, TextOf(text), TextOf(title), style});
    return IDOK;
}

}  // namespace updater
