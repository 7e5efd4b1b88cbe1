#include "end_to_end/running_processes.h"

#include "support/windows_api.h"

// After the Windows types that they need.
#include <tlhelp32.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string_view>

#include "elevation/program_start.h"
#include "end_to_end/waiting.h"
#include "support/process_utilities.h"

namespace updater {

namespace {

constexpr DWORD kFullUse = SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION |
                           PROCESS_QUERY_INFORMATION | PROCESS_VM_READ | PROCESS_TERMINATE;

constexpr UINT kEndedByTest = 99;

UniqueHandle TakeSnapshot(DWORD contents) {
    UniqueHandle snapshot = OwnHandle(CreateToolhelp32Snapshot(contents, 0));
    if (!snapshot) {
        RaiseLastError("Cannot list the running processes");
    }
    return snapshot;
}

bool IsSameText(std::wstring_view text, std::wstring_view otherText) {
    return CompareStringOrdinal(text.data(), static_cast<int>(text.size()), otherText.data(),
                                static_cast<int>(otherText.size()), TRUE) == CSTR_EQUAL;
}

bool IsBelow(const std::filesystem::path& file, const std::filesystem::path& directory) {
    const std::wstring prefix = directory.native() + L'\\';
    return file.native().size() > prefix.size() &&
           IsSameText(file.native().substr(0, prefix.size()), prefix);
}

std::vector<PROCESSENTRY32W> ListEntries() {
    const UniqueHandle snapshot = TakeSnapshot(TH32CS_SNAPPROCESS);
    std::vector<PROCESSENTRY32W> entries;
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Process32FirstW(snapshot.get(), &entry); more != 0;
         more = Process32NextW(snapshot.get(), &entry)) {
        entries.push_back(entry);
    }
    return entries;
}

// Empty for a process that has ended, at the latest while it is asked.
std::filesystem::path ImageOf(HANDLE process) {
    if (HasEnded(process)) {
        return {};
    }
    try {
        return GetProcessImagePath(process);
    } catch (const std::runtime_error&) {
        return {};
    }
}

std::uint64_t TicksOf(const FILETIME& time) {
    return std::uint64_t{time.dwHighDateTime} << 32U | time.dwLowDateTime;
}

// In 100-nanosecond intervals.
struct Life {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
};

Life LifeOf(HANDLE process) {
    FILETIME started{};
    FILETIME ended{};
    // Under Wine these two are the caller's own.
    FILETIME kernel{};
    FILETIME user{};
    if (GetProcessTimes(process, &started, &ended, &kernel, &user) == 0) {
        RaiseLastError("Cannot read a process's times");
    }
    return {TicksOf(started), TicksOf(ended)};
}

// A process keeps its parent's id after the parent's end, and the system gives that id to another
// process: whatever started after the child is not its parent.
void ForgetReusedParents(std::vector<RunningProcess>& processes) {
    for (RunningProcess& process : processes) {
        const auto parent = std::ranges::find(processes, process.parentId, &RunningProcess::id);
        if (parent != processes.end() && parent->startTime > process.startTime) {
            process.parentId = 0;
        }
    }
}

void EndProcess(std::uint32_t processId) {
    const UniqueHandle process = OpenRunningProcess(processId);
    if (process) {
        TerminateProcess(process.get(), kEndedByTest);
        AwaitEnd(process.get(), "the end of a process that the test ended");
    }
}

// When each of them had started, by their ids.
using EndedProcesses = std::map<std::uint32_t, std::uint64_t>;

// The id may have been an earlier process's, whose children run on.
bool IsChildOfOne(const RunningProcess& process, const EndedProcesses& ended) {
    const auto parent = ended.find(process.parentId);
    return parent != ended.end() && parent->second <= process.startTime;
}

// Returns whether there was one to end.
bool EndListedProcessesBelow(const std::filesystem::path& directory, EndedProcesses& ended) {
    bool found = false;
    // A process comes after the one that started it.
    for (const RunningProcess& running : ListRunningProcesses()) {
        if (IsBelow(running.image, directory) || IsChildOfOne(running, ended)) {
            ended[running.id] = running.startTime;
            EndProcess(running.id);
            found = true;
        }
    }
    return found;
}

std::vector<std::uint32_t> ListThreads(std::uint32_t processId) {
    const UniqueHandle snapshot = TakeSnapshot(TH32CS_SNAPTHREAD);
    std::vector<std::uint32_t> threadIds;
    THREADENTRY32 entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Thread32First(snapshot.get(), &entry); more != 0;
         more = Thread32Next(snapshot.get(), &entry)) {
        if (entry.th32OwnerProcessID == processId) {
            threadIds.push_back(entry.th32ThreadID);
        }
    }
    return threadIds;
}

// Returns null for a thread that has ended since it was listed.
UniqueHandle SuspendListedThread(std::uint32_t threadId) {
    UniqueHandle thread =
        OwnHandle(OpenThread(THREAD_SUSPEND_RESUME | SYNCHRONIZE, FALSE, threadId));
    if (!thread && GetLastError() == ERROR_INVALID_PARAMETER) {
        return nullptr;
    }
    if (!thread || SuspendThread(thread.get()) == static_cast<DWORD>(-1)) {
        const DWORD error = GetLastError();
        if (thread && HasEnded(thread.get())) {
            return nullptr;
        }
        SetLastError(error);
        RaiseLastError("Cannot hold up a process");
    }
    return thread;
}

bool CannotRun(std::uint32_t threadId) {
    const UniqueHandle thread = SuspendListedThread(threadId);
    // The count before it is lowered again: 1 is from the line above.
    return thread && ResumeThread(thread.get()) > 1;
}

// Returns whether there was a thread that did not stand still yet.
bool PauseMoreThreads(std::uint32_t processId, ProcessPause& pause) {
    bool found = false;
    for (const std::uint32_t threadId : ListThreads(processId)) {
        if (pause.threads.contains(threadId)) {
            continue;
        }
        UniqueHandle thread = SuspendListedThread(threadId);
        if (thread) {
            pause.threads[threadId].reset(thread.release());
            found = true;
        }
    }
    return found;
}

}  // namespace

std::vector<RunningProcess> ListRunningProcesses() {
    std::vector<RunningProcess> processes;
    for (const PROCESSENTRY32W& entry : ListEntries()) {
        const UniqueHandle process = OpenRunningProcess(entry.th32ProcessID);
        const std::filesystem::path image = process ? ImageOf(process.get()) : L"";
        if (!image.empty()) {
            processes.push_back({entry.th32ProcessID, entry.th32ParentProcessID, image,
                                 LifeOf(process.get()).begin});
        }
    }
    ForgetReusedParents(processes);
    return processes;
}

std::vector<RunningProcess> ListProcessesOf(const std::filesystem::path& executable) {
    std::vector<RunningProcess> processes = ListRunningProcesses();
    std::erase_if(processes, [&](const RunningProcess& process) {
        return !IsSameText(process.image.native(), executable.native());
    });
    return processes;
}

std::uint32_t FindChild(const std::vector<RunningProcess>& running, std::uint32_t parentId,
                        const std::filesystem::path& directory) {
    const auto child = std::ranges::find_if(running, [&](const RunningProcess& process) {
        return process.parentId == parentId &&
               IsSameText(process.image.parent_path().native(), directory.native());
    });
    return parentId == 0 || child == running.end() ? 0 : child->id;
}

std::uint32_t FindNewChild(HANDLE parent) {
    const std::uint32_t parentId = GetProcessId(parent);
    const std::uint64_t begin = LifeOf(parent).begin;
    for (const PROCESSENTRY32W& entry : ListEntries()) {
        if (entry.th32ParentProcessID == parentId) {
            const UniqueHandle child = OpenRunningProcess(entry.th32ProcessID);
            // The id may have been an earlier process's, whose children run on.
            if (child && LifeOf(child.get()).begin >= begin) {
                return entry.th32ProcessID;
            }
        }
    }
    return 0;
}

bool IsHeldUp(std::uint32_t processId) {
    const std::vector<std::uint32_t> threadIds = ListThreads(processId);
    return !threadIds.empty() && std::ranges::all_of(threadIds, CannotRun);
}

bool HasBegun(std::uint32_t processId) {
    const std::vector<std::uint32_t> threadIds = ListThreads(processId);
    return !threadIds.empty() && std::ranges::none_of(threadIds, CannotRun);
}

UniqueHandle OpenRunningProcess(std::uint32_t processId) {
    return OwnHandle(OpenProcess(kFullUse, FALSE, processId));
}

double RunningTime(HANDLE process) {
    return TimeUntilEnd(LifeOf(process).begin, process);
}

std::uint64_t SystemTime() {
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    return TicksOf(now);
}

double TimeUntilEnd(std::uint64_t systemTime, HANDLE process) {
    constexpr double kTicksInASecond = 1e7;
    return static_cast<double>(LifeOf(process).end - systemTime) / kTicksInASecond;
}

void EndProcessesBelow(const std::filesystem::path& directory) {
    EndedProcesses ended;
    // Until its own end each of them may start another.
    while (EndListedProcessesBelow(directory, ended)) {
    }
}

ProcessPause::ProcessPause(std::uint32_t processId) {
    if (processId == 0) {
        return;
    }
    const UniqueHandle process = OpenRunningProcess(processId);
    // A process that has just been started gets its first thread in a moment.
    AwaitCondition("a process's first thread", [&] {
        // A thread that runs on may start another one.
        while (PauseMoreThreads(processId, *this)) {
        }
        return !threads.empty() || !process || HasEnded(process.get());
    });
    if (threads.empty()) {
        throw std::runtime_error("There is no process to hold up");
    }
}

ProcessPause HoldUpIfRunning(HANDLE process) {
    if (process == nullptr || HasEnded(process)) {
        return ProcessPause(0);
    }
    try {
        return ProcessPause(GetProcessId(process));
    } catch (const std::runtime_error&) {
        if (!HasEnded(process)) {
            throw;
        }
        return ProcessPause(0);
    }
}

void LetRunFor(std::chrono::milliseconds time, const ProcessPause& pause) {
    for (const auto& [id, thread] : pause.threads) {
        ResumeThread(thread.get());
    }
    Sleep(static_cast<DWORD>(time.count()));
    for (const auto& [id, thread] : pause.threads) {
        SuspendThread(thread.get());
    }
}

}  // namespace updater
