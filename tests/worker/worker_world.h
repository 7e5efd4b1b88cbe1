#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/processes/stand_in_process.h"
#include "support/handle.h"
#include "support/process_utilities.h"
#include "support/updater_arguments.h"
#include "worker/installation_world.h"
#include "worker/staging_world.h"

namespace updater {

/// What goes wrong around the worker before the installation.
struct WorkerFaults {
    bool notElevated = false;
    bool parentUnreadable = false;
    DWORD inaccessibleProcess = 0;
};

struct MutexCreation {
    std::wstring name;
    bool hasSecurityAttributes;
    bool initiallyOwned;
};

struct EventOpening {
    std::wstring name;
    DWORD access;
    bool inherits;
    HANDLE handle;
};

/// What a worker finds when everything is in order: the application runs from its installation
/// directory, and a broker has created the two events. As soon as the worker is ready, a second
/// passes, the application exits, and the broker commits. The staging directory is a real one.
struct WorkerWorld {
    WorkerWorld();
    WorkerWorld(const WorkerWorld&) = delete;
    WorkerWorld& operator=(const WorkerWorld&) = delete;

    void LetBrokerNeverCommit();

    /// The limits of the waits for the commit event, in their order.
    [[nodiscard]] std::vector<DWORD> CommitWaits() const;

    /// The only staging directory that was made.
    [[nodiscard]] std::filesystem::path StagingDirectory() const;

    InstallationWorld installed;
    StagingWorld staging{installed.actions};
    std::vector<std::string>& actions = installed.actions;
    SimulatedTime& time = installed.time;
    std::vector<StatusRecord>& records = installed.status.records;

    std::filesystem::path installDirectory = installed.installation.installDirectory;
    std::filesystem::path jobDirectory = installed.installation.jobDirectory;
    std::filesystem::path installer = installed.directory.path / L"\u4E0B\u8F7D setup 2.exe";
    StandInProcess application = StartWaiting(installed.applicationPath);
    std::wstring eventBaseName = L"Local\\CorvellanUpdate-" + CreateJobIdentity();
    UniqueHandle ready = CreateHandshakeEvent(L"-ready");
    UniqueHandle commit = CreateHandshakeEvent(L"-commit");
    UniqueHandle mutexOfAnotherWorker;
    UpdaterArguments arguments;
    WorkerFaults faults;

    /// When the worker sets the ready event.
    std::function<void()> onReady;

    [[nodiscard]] UniqueHandle CreateHandshakeEvent(const wchar_t* suffix) const;

    std::vector<MutexCreation> mutexes;
    std::vector<EventOpening> openings;

    BOOL OnGetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS information, LPVOID buffer,
                               DWORD size, PDWORD length);
    HANDLE OnCreateMutex(LPSECURITY_ATTRIBUTES security, BOOL owned, LPCWSTR name);
    HANDLE OnOpenProcess(DWORD access, BOOL inherit, DWORD processId);
    BOOL OnQueryImageName(HANDLE process, DWORD flags, LPWSTR path, PDWORD length);
    HANDLE OnOpenEvent(DWORD access, BOOL inherit, LPCWSTR name);
    BOOL OnSetEvent(HANDLE event);

    ScopedReplacement<decltype(GetTokenInformation)> getTokenInformation{
        doubles::GetTokenInformation, std::bind_front(&WorkerWorld::OnGetTokenInformation, this)};
    ScopedReplacement<decltype(CreateMutexW)> createMutex{
        doubles::CreateMutexW, std::bind_front(&WorkerWorld::OnCreateMutex, this)};
    ScopedReplacement<decltype(OpenProcess)> openProcess{
        doubles::OpenProcess, std::bind_front(&WorkerWorld::OnOpenProcess, this)};
    ScopedReplacement<decltype(QueryFullProcessImageNameW)> queryImageName{
        doubles::QueryFullProcessImageNameW, std::bind_front(&WorkerWorld::OnQueryImageName, this)};
    ScopedReplacement<decltype(OpenEventW)> openEvent{
        doubles::OpenEventW, std::bind_front(&WorkerWorld::OnOpenEvent, this)};
    ScopedReplacement<decltype(SetEvent)> setEvent{doubles::SetEvent,
                                                   std::bind_front(&WorkerWorld::OnSetEvent, this)};
};

}  // namespace updater
