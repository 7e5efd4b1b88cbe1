#include "update_notice.h"

#include <corvellan_update.h>
#include <windows.h>

#include <filesystem>
#include <system_error>

#include "controls.h"
#include "names.h"

namespace corvellan {

namespace {

constexpr std::wstring_view kNoticeOption = L" --being-updated ";
constexpr std::wstring_view kStartAnywayOption = L" --start-anyway";

constexpr UINT_PTR kLookTimer = 1;
constexpr UINT kLookInterval = 500;

void StartProgram(const std::filesystem::path& executable, const std::wstring& arguments) {
    std::wstring commandLine = L"\"" + executable.native() + L"\"" + arguments;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    if (CreateProcessW(executable.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr,
                       executable.parent_path().c_str(), &startup, &started) == 0) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(),
                                "Cannot start the application");
    }
    AllowSetForegroundWindow(started.dwProcessId);
    CloseHandle(started.hThread);
    CloseHandle(started.hProcess);
}

INT_PTR CALLBACK ProcessNotice(HWND notice, UINT message, WPARAM wParam, LPARAM) {
    switch (message) {
        case WM_INITDIALOG:
            SetTimer(notice, kLookTimer, kLookInterval, nullptr);
            return TRUE;
        case WM_TIMER:
            if (AppUpdateIsBeingInstalled() == 0) {
                EndDialog(notice, IDCANCEL);
            }
            return TRUE;
        case WM_COMMAND:
            EndDialog(notice, LOWORD(wParam));
            return TRUE;
        default:
            return FALSE;
    }
}

}  // namespace

void StartUpdateNotice(const Application& application) {
    const std::filesystem::path executable = application.installDirectory / kExecutable;
    const std::filesystem::path copy = UserDataDirectory() / L"update-notice.exe";
    // A copy that cannot be replaced is already showing the notice.
    if (CopyFileW(executable.c_str(), copy.c_str(), FALSE) != 0) {
        StartProgram(copy, std::wstring(kNoticeOption) + executable.native());
    }
}

std::wstring NoticeSubject(std::wstring_view commandLine) {
    const std::size_t option = commandLine.find(kNoticeOption);
    return option == std::wstring_view::npos
               ? std::wstring()
               : std::wstring(commandLine.substr(option + kNoticeOption.size()));
}

void ShowUpdateNotice(const std::wstring& executable) {
    const INT_PTR choice = DialogBoxParamW(
        GetModuleHandleW(nullptr), MAKEINTRESOURCEW(ID_UPDATE_NOTICE), nullptr, ProcessNotice, 0);
    if (choice == ID_START_ANYWAY) {
        StartProgram(executable, std::wstring(kStartAnywayOption));
    }
}

bool IsStartedAnyway(std::wstring_view commandLine) {
    return commandLine.ends_with(kStartAnywayOption);
}

}  // namespace corvellan
