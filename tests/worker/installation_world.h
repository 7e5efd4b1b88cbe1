#pragma once

#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/processes/process_start.h"
#include "fixtures/processes/simulated_time.h"
#include "fixtures/processes/status_history.h"
#include "fixtures/temporary_directory.h"
#include "fixtures/uninstall_entry.h"
#include "worker/installation.h"

namespace updater {

/// What goes wrong during an installation. The numbers count from 1.
struct InstallationFaults {
    std::set<int> unreadableProcessLists;
    std::set<int> unreadableVersions;
    bool backupCorrupted = false;
    bool restoreCorrupted = false;
    std::set<std::string> unwritableStates;
};

/// How `RegGetValueW` was called.
struct RegistryQuery {
    HKEY root;
    std::wstring key;
    std::wstring value;
    DWORD flags;
    bool asksForType;
    bool bufferIsZero;
    DWORD bytes;
};

/// What an installation works on when everything is in order: version 1 of the application with a
/// user's file beside it, registered as "1.0"; version 2, and a setup program in the staging
/// directory that installs it. Time is simulated; processes, files and registry are real.
struct InstallationWorld {
    InstallationWorld();
    InstallationWorld(const InstallationWorld&) = delete;
    InstallationWorld& operator=(const InstallationWorld&) = delete;

    /// Lets the setup program install version 2 completely and then end with this exit code.
    void LetSetupEndWith(const std::string& exitCode);

    /// The command line that the setup program must get.
    [[nodiscard]] std::wstring ExpectedCommandLine() const;

    TemporaryDirectory directory;
    std::filesystem::path applicationPath = directory.path / L"\u7A0B\u5E8F app" / L"corvellan.exe";
    std::filesystem::path package = directory.path / L"version 2";
    Installation installation = {
        directory.path / L"\u7A0B\u5E8F app",
        directory.path / L"\u4EFB\u52A1 job",
        directory.path / L"\u6682\u5B58 staging",
        directory.path / L"\u6682\u5B58 staging" / L"installer.exe",
        L"2.0.0.0",
    };
    ScopedUninstallEntry uninstallEntry;
    /// What the setup program does, once it is started.
    std::vector<std::string> setupSteps;
    InstallationFaults faults;

    /// The visible actions in their order.
    std::vector<std::string> actions;
    std::vector<RegistryQuery> registryQueries;
    /// Called with the number of each reading of the application's version, before it is read.
    std::function<void(int)> onVersionRead;
    /// Called when the setup program is started.
    std::function<void()> onSetupStart;

    BOOL OnFirstProcess(HANDLE snapshot, LPPROCESSENTRY32W entry);
    DWORD OnVersionInfoSize(LPCWSTR file, LPDWORD handle);
    LSTATUS OnRegGetValue(HKEY root, LPCWSTR key, LPCWSTR value, DWORD flags, LPDWORD type,
                          PVOID buffer, LPDWORD bytes);
    BOOL OnCopyFile(LPCWSTR source, LPCWSTR target, BOOL failIfExists);

    int processLists = 0;
    int versionReads = 0;
    SimulatedTime time;
    StatusHistory status;
    ProcessStarts processes;
    ScopedReplacement<decltype(Process32FirstW)> firstProcess{
        doubles::Process32FirstW, std::bind_front(&InstallationWorld::OnFirstProcess, this)};
    ScopedReplacement<decltype(GetFileVersionInfoSizeW)> versionInfoSize{
        doubles::GetFileVersionInfoSizeW,
        std::bind_front(&InstallationWorld::OnVersionInfoSize, this)};
    ScopedReplacement<decltype(RegGetValueW)> regGetValue{
        doubles::RegGetValueW, std::bind_front(&InstallationWorld::OnRegGetValue, this)};
    ScopedReplacement<decltype(CopyFileW)> copyFile{
        doubles::CopyFileW, std::bind_front(&InstallationWorld::OnCopyFile, this)};
};

}  // namespace updater
