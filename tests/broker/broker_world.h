#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/processes/process_start.h"
#include "fixtures/processes/simulated_time.h"
#include "fixtures/processes/stand_in_process.h"
#include "fixtures/processes/status_history.h"
#include "fixtures/temporary_directory.h"
#include "support/updater_arguments.h"

namespace updater {

/// What goes wrong around the broker.
struct BrokerFaults {
    bool elevated = false;
    bool parentUnreadable = false;
    DWORD inaccessibleProcess = 0;
    bool processListUnreadable = false;
    bool identityUnavailable = false;
    bool readyEventUnavailable = false;
    bool commitEventUnavailable = false;
    bool ownImageUnreadable = false;
    std::optional<DWORD> launchError;
    bool launchGivesNoHandle = false;
    std::string unwritableState;
    /// This entry of the job directory cannot be inspected.
    std::wstring uninspectableEntry;
    bool exitCodeUnreadable = false;
};

struct EventCreation {
    std::wstring name;
    bool hasSecurityAttributes;
    bool manualReset;
    bool signalled;
};

struct ElevatedLaunch {
    SHELLEXECUTEINFOW info;
    std::wstring verb;
    std::wstring file;
    std::wstring parameters;
};

struct ErrorBox {
    HWND owner;
    std::wstring text;
    std::wstring title;
    UINT style;
};

/// What a broker finds when everything is in order: the application runs from its installation
/// directory, and the shell starts a worker that reports "authorized" and sets the ready event at
/// once. Time is simulated; the application, the worker (a stand-in), events and files are real.
struct BrokerWorld {
    BrokerWorld();
    ~BrokerWorld();
    BrokerWorld(const BrokerWorld&) = delete;
    BrokerWorld& operator=(const BrokerWorld&) = delete;

    /// What the worker does when it starts, unless `onLaunch` is replaced.
    void ReportAuthorized();
    void SetReadyEvent();

    /// Lets the worker run without ever being ready.
    void LetWorkerBeSilent();

    /// Lets the application exit a second after the broker's "ready" record, and the worker end
    /// with this exit code an hour after the commit.
    void LetWorkerEndWith(UINT exitCode);

    /// Whether the broker carried out an action.
    [[nodiscard]] bool Did(const std::string& action) const;

    TemporaryDirectory directory;
    std::filesystem::path installDirectory = directory.path / L"\u7A0B\u5E8F app";
    std::filesystem::path jobDirectory = directory.path / L"\u4EFB\u52A1 job";
    std::filesystem::path applicationPath = installDirectory / L"corvellan.exe";
    StandInProcess application = StartStandInApplication(applicationPath, 1);
    StandInProcess worker = StartStandInApplication(directory.path / L"worker.exe", 1);
    UpdaterArguments arguments;
    BrokerFaults faults;

    std::function<void()> onLaunch = [this] { ReportAuthorized(); };
    /// When the broker writes its "ready" record.
    std::function<void()> onReady;
    /// When the commit event is set.
    std::function<void()> onCommit;

    /// The broker's actions in their order, without its polling.
    std::vector<std::string> actions;
    std::vector<EventCreation> events;
    std::vector<ElevatedLaunch> launches;
    std::vector<ErrorBox> errorBoxes;
    std::vector<HANDLE> eventHandles;

    BOOL OnGetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS information, LPVOID buffer,
                               DWORD size, PDWORD length);
    HANDLE OnOpenProcess(DWORD access, BOOL inherit, DWORD processId);
    BOOL OnQueryImageName(HANDLE process, DWORD flags, LPWSTR path, PDWORD length);
    BOOL OnFirstProcess(HANDLE snapshot, LPPROCESSENTRY32W entry);
    HRESULT OnCreateGuid(GUID* identity);
    HANDLE OnCreateEvent(LPSECURITY_ATTRIBUTES security, BOOL manual, BOOL signalled, LPCWSTR name);
    BOOL OnShellExecute(SHELLEXECUTEINFOW* info);
    BOOL OnSetEvent(HANDLE event);
    BOOL OnGetExitCode(HANDLE process, LPDWORD exitCode);
    BOOL OnGetFileAttributes(LPCWSTR file, GET_FILEEX_INFO_LEVELS level, LPVOID data) const;
    int OnMessageBox(HWND owner, LPCWSTR text, LPCWSTR title, UINT style);

    SimulatedTime time;
    StatusHistory status;
    ProcessStarts processes;
    ScopedReplacement<decltype(GetTokenInformation)> getTokenInformation{
        doubles::GetTokenInformation, std::bind_front(&BrokerWorld::OnGetTokenInformation, this)};
    ScopedReplacement<decltype(OpenProcess)> openProcess{
        doubles::OpenProcess, std::bind_front(&BrokerWorld::OnOpenProcess, this)};
    ScopedReplacement<decltype(QueryFullProcessImageNameW)> queryImageName{
        doubles::QueryFullProcessImageNameW, std::bind_front(&BrokerWorld::OnQueryImageName, this)};
    ScopedReplacement<decltype(Process32FirstW)> firstProcess{
        doubles::Process32FirstW, std::bind_front(&BrokerWorld::OnFirstProcess, this)};
    ScopedReplacement<decltype(CoCreateGuid)> coCreateGuid{
        doubles::CoCreateGuid, std::bind_front(&BrokerWorld::OnCreateGuid, this)};
    ScopedReplacement<decltype(CreateEventW)> createEvent{
        doubles::CreateEventW, std::bind_front(&BrokerWorld::OnCreateEvent, this)};
    ScopedReplacement<decltype(ShellExecuteExW)> shellExecute{
        doubles::ShellExecuteExW, std::bind_front(&BrokerWorld::OnShellExecute, this)};
    ScopedReplacement<decltype(SetEvent)> setEvent{doubles::SetEvent,
                                                   std::bind_front(&BrokerWorld::OnSetEvent, this)};
    ScopedReplacement<decltype(GetExitCodeProcess)> getExitCodeProcess{
        doubles::GetExitCodeProcess, std::bind_front(&BrokerWorld::OnGetExitCode, this)};
    ScopedReplacement<decltype(GetFileAttributesExW)> getFileAttributes{
        doubles::GetFileAttributesExW, std::bind_front(&BrokerWorld::OnGetFileAttributes, this)};
    ScopedReplacement<decltype(MessageBoxW)> messageBox{
        doubles::MessageBoxW, std::bind_front(&BrokerWorld::OnMessageBox, this)};
};

}  // namespace updater
