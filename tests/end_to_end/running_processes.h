#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
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

/// Returns the id of the process that this one has started from an executable in the directory, or
/// 0 if there is none. The parent alone would not do: the id may have been an earlier process's,
/// whose children run on.
std::uint32_t FindChild(const std::vector<RunningProcess>& running, std::uint32_t parentId,
                        const std::filesystem::path& directory);

/// Returns the id of a process that this one has started, even of one whose executable cannot be
/// told yet, or 0 if there is none. Raises `std::system_error`.
std::uint32_t FindNewChild(HANDLE parent);

/// Whether none of the process's threads can run. Whoever starts a process lets it run at last;
/// ended before that, they leave one that never begins.
bool IsHeldUp(std::uint32_t processId);

/// Whether whoever started the process has let it run, and nobody holds it up.
bool HasBegun(std::uint32_t processId);

/// Opens a process for waiting, queries and its end. Null if it cannot be opened.
UniqueHandle OpenRunningProcess(std::uint32_t processId);

/// Returns how long a process that has ended ran, in seconds. Raises `std::system_error`.
double RunningTime(HANDLE process);

/// Returns the time, in 100-nanosecond intervals.
std::uint64_t SystemTime();

/// Returns the seconds from that time to the end of a process that has ended. Raises
/// `std::system_error`.
double TimeUntilEnd(std::uint64_t systemTime, HANDLE process);

/// Ends every process whose executable lies in the directory, at any depth, and those that they
/// have started, also while this goes on, and waits for their end.
void EndProcessesBelow(const std::filesystem::path& directory);

/// Resumes a thread and closes its handle.
struct ThreadResumer {
    using pointer = HANDLE;
    void operator()(HANDLE thread) const noexcept {
        ResumeThread(thread);
        CloseHandle(thread);
    }
};

/// Holds up all threads of a process (0: of none) until the end of the scope. Raises
/// `std::runtime_error` when a process has no thread, so when it has ended.
struct ProcessPause {
    explicit ProcessPause(std::uint32_t processId);
    ~ProcessPause() = default;
    ProcessPause(ProcessPause&&) = default;
    ProcessPause& operator=(ProcessPause&&) = default;
    ProcessPause(const ProcessPause&) = delete;
    ProcessPause& operator=(const ProcessPause&) = delete;

    /// By their ids.
    std::map<std::uint32_t, std::unique_ptr<void, ThreadResumer>> threads;
};

/// Lets the threads that are held up run for so long.
void LetRunFor(std::chrono::milliseconds time, const ProcessPause& pause);

/// Holds the process up if there is one and it runs; it may end at any moment.
ProcessPause HoldUpIfRunning(HANDLE process);

}  // namespace updater
