#include "end_to_end/running_processes.h"

#include "support/windows_api.h"

// After the Windows types that they need.
#include <tlhelp32.h>

#include <algorithm>
#include <cstdint>
#include <set>
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

// In 100-nanosecond intervals; 0 if the system does not tell.
std::uint64_t StartTimeOf(HANDLE process) {
    FILETIME started{};
    FILETIME ended{};
    FILETIME kernel{};
    FILETIME user{};
    GetProcessTimes(process, &started, &ended, &kernel, &user);
    return TicksOf(started);
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

// In 100-nanosecond intervals; 0 for a process that cannot be asked.
std::uint64_t ProcessorTimeOf(std::uint32_t processId) {
    const UniqueHandle process = OpenRunningProcess(processId);
    FILETIME started{};
    FILETIME ended{};
    FILETIME kernel{};
    FILETIME user{};
    if (!process || GetProcessTimes(process.get(), &started, &ended, &kernel, &user) == 0) {
        return 0;
    }
    return TicksOf(kernel) + TicksOf(user);
}

void EndProcess(std::uint32_t processId) {
    const UniqueHandle process = OpenRunningProcess(processId);
    if (process) {
        TerminateProcess(process.get(), kEndedByTest);
        AwaitEnd(process.get(), "the end of a process that the test ended");
    }
}

}  // namespace

std::vector<RunningProcess> ListRunningProcesses() {
    const UniqueHandle snapshot = TakeSnapshot(TH32CS_SNAPPROCESS);
    std::vector<RunningProcess> processes;
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Process32FirstW(snapshot.get(), &entry); more != 0;
         more = Process32NextW(snapshot.get(), &entry)) {
        const UniqueHandle process = OpenRunningProcess(entry.th32ProcessID);
        const std::filesystem::path image = process ? ImageOf(process.get()) : L"";
        if (!image.empty()) {
            processes.push_back({entry.th32ProcessID, entry.th32ParentProcessID, image,
                                 StartTimeOf(process.get())});
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

UniqueHandle OpenRunningProcess(std::uint32_t processId) {
    return OwnHandle(OpenProcess(kFullUse, FALSE, processId));
}

double RunningTime(HANDLE process) {
    FILETIME created{};
    FILETIME ended{};
    FILETIME kernel{};
    FILETIME user{};
    if (GetProcessTimes(process, &created, &ended, &kernel, &user) == 0) {
        RaiseLastError("Cannot read a process's times");
    }
    constexpr double kTicksInASecond = 1e7;
    return static_cast<double>(TicksOf(ended) - TicksOf(created)) / kTicksInASecond;
}

void EndProcessesBelow(const std::filesystem::path& directory) {
    std::set<std::uint32_t> ended;
    // A process comes after the one that started it.
    for (const RunningProcess& running : ListRunningProcesses()) {
        if (IsBelow(running.image, directory) || ended.contains(running.parentId)) {
            ended.insert(running.id);
            EndProcess(running.id);
        }
    }
}

void EndProcessesNamed(const wchar_t* name) {
    for (const RunningProcess& running : ListRunningProcesses()) {
        if (IsSameText(running.image.filename().native(), name)) {
            EndProcess(running.id);
        }
    }
}

void AwaitRest(std::uint32_t processId) {
    constexpr int kAttempts = 40;
    constexpr DWORD kIntervalMilliseconds = 50;
    std::uint64_t before = ProcessorTimeOf(processId);
    int quiet = 0;
    for (int attempt = 0; quiet < 2 && attempt < kAttempts; ++attempt) {
        Sleep(kIntervalMilliseconds);
        const std::uint64_t now = ProcessorTimeOf(processId);
        quiet = now == before ? quiet + 1 : 0;
        before = now;
    }
}

ProcessPause::ProcessPause(std::uint32_t processId) {
    const UniqueHandle snapshot = TakeSnapshot(TH32CS_SNAPTHREAD);
    THREADENTRY32 entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Thread32First(snapshot.get(), &entry); more != 0;
         more = Thread32Next(snapshot.get(), &entry)) {
        if (processId != 0 && entry.th32OwnerProcessID == processId) {
            UniqueHandle thread =
                OwnHandle(OpenThread(THREAD_SUSPEND_RESUME, FALSE, entry.th32ThreadID));
            if (!thread || SuspendThread(thread.get()) == static_cast<DWORD>(-1)) {
                RaiseLastError("Cannot pause a process");
            }
            threads.push_back(std::move(thread));
        }
    }
}

ProcessPause::~ProcessPause() {
    for (const UniqueHandle& thread : threads) {
        ResumeThread(thread.get());
    }
}

}  // namespace updater
