#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "support/handle.h"
#include "support/windows_api.h"

namespace updater {

struct RunningProcess {
    std::uint32_t id = 0;
    /// 0 when the process that started it has ended and its id belongs to another one.
    std::uint32_t parentId = 0;
    std::filesystem::path image;
    /// In 100-nanosecond intervals.
    std::uint64_t startTime = 0;
};

/// Returns every process that can be inspected and has not ended.
std::vector<RunningProcess> ListRunningProcesses();

/// Returns those of them that run this executable; the path is compared by its text alone.
std::vector<RunningProcess> ListProcessesOf(const std::filesystem::path& executable);

/// Opens a process for waiting, queries and its end. Null if it cannot be opened.
UniqueHandle OpenRunningProcess(std::uint32_t processId);

/// Returns how long a process that has ended ran, in seconds. Raises `std::system_error`.
double RunningTime(HANDLE process);

/// Ends every process whose executable lies in the directory, at any depth, and those that they
/// have started, and waits for their end.
void EndProcessesBelow(const std::filesystem::path& directory);

/// The same for every process whose executable has this name.
void EndProcessesNamed(const wchar_t* name);

/// Waits until a process does nothing but wait, two seconds at the most. One that is held up in the
/// middle of its work may keep something that others need: the display, while it connects to that.
void AwaitRest(std::uint32_t processId);

/// Holds up all threads of a process (0: of none) until the end of the scope.
struct ProcessPause {
    explicit ProcessPause(std::uint32_t processId);
    ~ProcessPause();
    ProcessPause(const ProcessPause&) = delete;
    ProcessPause& operator=(const ProcessPause&) = delete;

    std::vector<UniqueHandle> threads;
};

}  // namespace updater
