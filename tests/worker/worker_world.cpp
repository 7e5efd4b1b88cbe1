#include "worker/worker_world.h"

#include "support/file_digest.h"
#include "support/file_system.h"
#include "support/text_conversion.h"

namespace updater {

WorkerWorld::WorkerWorld() {
    CopyOverFile(StandInSetup(), installer);
    arguments = {{kWorkerFlag, L"1"},
                 {kEventOption, eventBaseName},
                 {kInstallDirOption, installDirectory},
                 {kInstallerOption, installer},
                 {kJobDirOption, jobDirectory},
                 {kParentPidOption, std::to_wstring(application.id)},
                 {kSha256Option, Utf8ToWide(FileSha256Hex(installer))},
                 {kSizeOption, std::to_wstring(FileSize(installer))},
                 {kVersionOption, L"2.0.0.0"}};
    onReady = [this] {
        time.After(1000, [this] {
            application.End();
            SetEvent(commit.get());
        });
    };
    actions.clear();
}

void WorkerWorld::LetBrokerNeverCommit() {
    onReady = nullptr;
}

UniqueHandle WorkerWorld::CreateHandshakeEvent(const wchar_t* suffix) const {
    return OwnHandle(CreateEventW(nullptr, TRUE, FALSE, (eventBaseName + suffix).c_str()));
}

std::vector<DWORD> WorkerWorld::CommitWaits() const {
    std::vector<DWORD> limits;
    for (const SimulatedTime::Wait& wait : time.waits) {
        if (openings.size() == 2 && wait.objects.front() == openings.back().handle) {
            limits.push_back(wait.milliseconds);
        }
    }
    return limits;
}

std::filesystem::path WorkerWorld::StagingDirectory() const {
    return staging.created.at(0);
}

BOOL WorkerWorld::OnGetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS information,
                                        LPVOID buffer, DWORD size, PDWORD length) {
    const BOOL done = GetTokenInformation(token, information, buffer, size, length);
    if (information == TokenElevation) {
        actions.emplace_back("query elevation");
        static_cast<TOKEN_ELEVATION*>(buffer)->TokenIsElevated = faults.notElevated ? 0 : 1;
    }
    return done;
}

HANDLE WorkerWorld::OnCreateMutex(LPSECURITY_ATTRIBUTES security, BOOL owned, LPCWSTR name) {
    actions.emplace_back("create mutex");
    mutexes.push_back({name, security != nullptr, owned != 0});
    return CreateMutexW(security, owned, name);
}

HANDLE WorkerWorld::OnOpenProcess(DWORD access, BOOL inherit, DWORD processId) {
    if (processId == application.id && access != PROCESS_TERMINATE) {
        constexpr DWORD kSynchronizeAndLimitedQuery = 0x101000;
        const bool expected = access == kSynchronizeAndLimitedQuery && inherit == FALSE;
        actions.emplace_back(expected ? "open parent" : "open parent with other rights");
    }
    if (processId != 0 && processId == faults.inaccessibleProcess) {
        return FailWith(ERROR_ACCESS_DENIED, HANDLE{nullptr});
    }
    return OpenProcess(access, inherit, processId);
}

BOOL WorkerWorld::OnQueryImageName(HANDLE process, DWORD flags, LPWSTR path, PDWORD length) {
    if (GetProcessId(process) == application.id) {
        actions.emplace_back("query parent's image");
        if (faults.parentUnreadable) {
            return FailWith(ERROR_GEN_FAILURE);
        }
    }
    return QueryFullProcessImageNameW(process, flags, path, length);
}

HANDLE WorkerWorld::OnOpenEvent(DWORD access, BOOL inherit, LPCWSTR name) {
    actions.emplace_back(openings.empty() ? "open ready event" : "open commit event");
    openings.push_back({name, access, inherit != 0, OpenEventW(access, inherit, name)});
    return openings.back().handle;
}

BOOL WorkerWorld::OnSetEvent(HANDLE event) {
    const BOOL done = SetEvent(event);
    if (!openings.empty() && event == openings.front().handle) {
        actions.emplace_back("set ready event");
        if (onReady) {
            onReady();
        }
    }
    return done;
}

}  // namespace updater
