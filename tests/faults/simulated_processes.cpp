#include "faults/simulated_processes.h"

#include <functional>

namespace updater::faults {

namespace {

void CopyText(const std::wstring& text, wchar_t* target) {
    target[text.copy(target, text.size())] = L'\0';
}

}  // namespace

SimulatedProcesses::SimulatedProcesses()
    : openProcess(doubles::OpenProcess,
                  [this](DWORD /*access*/, BOOL /*inherit*/, DWORD id) { return Open(id); }),
      queryImageName(doubles::QueryFullProcessImageNameW,
                     std::bind_front(&SimulatedProcesses::OnQueryImageName, this)),
      firstProcess(doubles::Process32FirstW,
                   [this](HANDLE /*snapshot*/, LPPROCESSENTRY32W entry) {
                       listPosition = 0;
                       return ListNext(entry);
                   }),
      nextProcess(doubles::Process32NextW,
                  [this](HANDLE /*snapshot*/, LPPROCESSENTRY32W entry) { return ListNext(entry); }),
      getExitCodeProcess(doubles::GetExitCodeProcess,
                         std::bind_front(&SimulatedProcesses::OnGetExitCode, this)) {}

void SimulatedProcesses::Start(DWORD id, const std::filesystem::path& image, bool listed) {
    processes[id] = {image, OwnHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr)), STILL_ACTIVE,
                     listed};
}

void SimulatedProcesses::End(DWORD id, DWORD exitCode) {
    processes.at(id).exitCode = exitCode;
    SetEvent(processes.at(id).ended.get());
}

HANDLE SimulatedProcesses::Open(DWORD id) {
    const auto found = processes.find(id);
    if (found == processes.end()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    HANDLE handle = nullptr;
    DuplicateHandle(GetCurrentProcess(), found->second.ended.get(), GetCurrentProcess(), &handle, 0,
                    FALSE, DUPLICATE_SAME_ACCESS);
    handles[handle] = id;
    return handle;
}

BOOL SimulatedProcesses::OnQueryImageName(HANDLE process, DWORD flags, LPWSTR path, PDWORD length) {
    if (process == GetCurrentProcess()) {
        return QueryFullProcessImageNameW(process, flags, path, length);
    }
    const std::wstring& image = processes.at(handles.at(process)).image.native();
    CopyText(image, path);
    *length = static_cast<DWORD>(image.size());
    return TRUE;
}

BOOL SimulatedProcesses::ListNext(LPPROCESSENTRY32W entry) {
    for (auto next = processes.upper_bound(listPosition); next != processes.end(); ++next) {
        listPosition = next->first;
        if (next->second.listed && next->second.exitCode == STILL_ACTIVE) {
            entry->th32ProcessID = next->first;
            CopyText(next->second.image.filename().native(), entry->szExeFile);
            return TRUE;
        }
    }
    SetLastError(ERROR_NO_MORE_FILES);
    return FALSE;
}

BOOL SimulatedProcesses::OnGetExitCode(HANDLE process, LPDWORD exitCode) {
    *exitCode = processes.at(handles.at(process)).exitCode;
    return TRUE;
}

}  // namespace updater::faults
