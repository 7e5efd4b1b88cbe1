#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <string>

#include "fixtures/doubles/windows_doubles.h"
#include "support/handle.h"

namespace updater::faults {

/// A process that exists only for the updater: an event, signalled once the process has ended.
struct SimulatedProcess {
    std::filesystem::path image;
    UniqueHandle ended;
    DWORD exitCode = STILL_ACTIVE;
    /// Whether the list of processes shows it while it runs.
    bool listed = true;
};

/// While it is in scope, the updater sees these processes, and those that it starts, instead of the
/// system's, and itself. All its handles to them are real ones.
struct SimulatedProcesses {
    SimulatedProcesses();
    SimulatedProcesses(const SimulatedProcesses&) = delete;
    SimulatedProcesses& operator=(const SimulatedProcesses&) = delete;

    void Start(DWORD id, const std::filesystem::path& image, bool listed = true);
    void End(DWORD id, DWORD exitCode = 0);

    /// Returns a handle of the caller's own to a process, or null if there is none of this number.
    HANDLE Open(DWORD id);

    std::map<DWORD, SimulatedProcess> processes;
    /// What each handle stands for. A closed handle's value may stand for something else later.
    std::map<HANDLE, DWORD> handles;
    /// The number of the process that the list stands at.
    DWORD listPosition = 0;

    BOOL OnQueryImageName(HANDLE process, DWORD flags, LPWSTR path, PDWORD length);
    BOOL ListNext(LPPROCESSENTRY32W entry);
    BOOL OnGetExitCode(HANDLE process, LPDWORD exitCode);

    ScopedReplacement<decltype(OpenProcess)> openProcess;
    ScopedReplacement<decltype(QueryFullProcessImageNameW)> queryImageName;
    ScopedReplacement<decltype(Process32FirstW)> firstProcess;
    ScopedReplacement<decltype(Process32NextW)> nextProcess;
    ScopedReplacement<decltype(GetExitCodeProcess)> getExitCodeProcess;
};

}  // namespace updater::faults
