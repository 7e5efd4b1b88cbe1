#include "window.h"

#include <windows.h>

// After the Windows types that it needs.
#include <commctrl.h>

#include <cstdint>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "controls.h"
#include "names.h"
#include "update_session.h"
#include "update_task.h"

namespace corvellan {

namespace {

constexpr wchar_t kStateProperty[] = L"ApplicationState";

/// How far an update has come. In the second half of them a task runs.
enum class Phase { NoUpdates, Idle, Found, Downloaded, Checking, Downloading, Updating };

struct MainWindow {
    HWND window = nullptr;
    UpdateTask task;
    Phase phase = Phase::NoUpdates;
    AppUpdateOffer offer{};
    bool cancelRequested = false;
    bool closing = false;
};

bool TaskRuns(const MainWindow& state) {
    return state.phase >= Phase::Checking;
}

// The button for what comes next; while that goes on it cannot be pressed.
int NextButton(Phase phase) {
    switch (phase) {
        case Phase::Found:
        case Phase::Downloading:
            return ID_DOWNLOAD;
        case Phase::Downloaded:
        case Phase::Updating:
            return ID_UPDATE;
        default:
            return ID_CHECK;
    }
}

void EnableControl(HWND window, int control, bool enabled) {
    EnableWindow(GetDlgItem(window, control), enabled ? TRUE : FALSE);
}

void ShowControl(HWND window, int control, bool shown) {
    ShowWindow(GetDlgItem(window, control), shown ? SW_SHOW : SW_HIDE);
}

void TellUser(const MainWindow& state, const std::wstring& text) {
    SetDlgItemTextW(state.window, ID_UPDATE_STATUS, text.c_str());
}

void EnterPhase(MainWindow& state, Phase phase, const std::wstring& text) {
    state.phase = phase;
    state.cancelRequested = false;
    const int next = NextButton(phase);
    const bool running = TaskRuns(state);
    for (const int button : {ID_CHECK, ID_DOWNLOAD, ID_UPDATE}) {
        ShowControl(state.window, button, button == next);
        EnableControl(state.window, button,
                      button == next && !running && phase != Phase::NoUpdates);
    }
    EnableControl(state.window, ID_CANCEL_UPDATE, running);
    ShowControl(state.window, ID_PROGRESS, phase == Phase::Downloading);
    // The focus must not stay with a button that cannot be pressed.
    SendMessageW(
        state.window, WM_NEXTDLGCTL,
        reinterpret_cast<WPARAM>(GetDlgItem(state.window, running ? ID_CANCEL_UPDATE : next)),
        TRUE);
    TellUser(state, text);
}

std::wstring OfferedVersion(const MainWindow& state) {
    return std::wstring(L"Version ") + state.offer.version;
}

// In megabytes with one decimal.
std::wstring SizeText(std::uint64_t bytes) {
    constexpr std::uint64_t kTenthOfMegabyte = 100'000;
    const std::uint64_t tenths = (bytes + kTenthOfMegabyte / 2) / kTenthOfMegabyte;
    return std::to_wstring(tenths / 10) + L'.' + std::to_wstring(tenths % 10) + L" MB";
}

void Check(MainWindow& state) {
    BeginCheck(state.task, state.offer);
    EnterPhase(state, Phase::Checking, L"Looking for updates");
}

void Download(MainWindow& state) {
    BeginDownload(state.task);
    SendDlgItemMessageW(state.window, ID_PROGRESS, PBM_SETPOS, 0, 0);
    EnterPhase(state, Phase::Downloading, OfferedVersion(state) + L" is being downloaded");
}

void Update(MainWindow& state) {
    BeginUpdate(state.task);
    EnterPhase(state, Phase::Updating,
               OfferedVersion(state) + L" is being prepared; please allow it to be installed");
}

void TellProgress(const MainWindow& state, std::uint64_t done, std::uint64_t total) {
    constexpr std::uint64_t kWhole = 100;
    SendDlgItemMessageW(state.window, ID_PROGRESS, PBM_SETPOS,
                        total == 0 ? 0 : done * kWhole / total, 0);
    TellUser(state, OfferedVersion(state) + L" is being downloaded: " + SizeText(done) + L" of " +
                        SizeText(total));
}

void Cancel(MainWindow& state) {
    state.cancelRequested = true;
    EnableControl(state.window, ID_CANCEL_UPDATE, false);
    TellUser(state, L"Cancelling");
    AppUpdateCancel(state.task.session);
}

// An update that has been started goes on without the window, and needs the application until it is
// ready for its end. Everything else ends.
void Close(MainWindow& state) {
    if (!TaskRuns(state)) {
        DestroyWindow(state.window);
        return;
    }
    state.closing = true;
    if (state.phase != Phase::Updating) {
        AppUpdateCancel(state.task.session);
    }
    ShowWindow(state.window, SW_HIDE);
}

// The phase to go back to when a step was not done.
Phase PhaseBefore(Phase phase) {
    switch (phase) {
        case Phase::Downloading:
            return Phase::Found;
        case Phase::Updating:
            return Phase::Downloaded;
        default:
            return Phase::Idle;
    }
}

void GoOn(MainWindow& state) {
    switch (state.phase) {
        case Phase::Checking:
            EnterPhase(state, Phase::Found,
                       OfferedVersion(state) + L" is available (" +
                           SizeText(state.offer.setupSize) + L")");
            break;
        case Phase::Downloading:
            EnterPhase(state, Phase::Downloaded, OfferedVersion(state) + L" is ready to install");
            break;
        default:
            if (state.cancelRequested) {
                FollowUpdate(state.task);
            } else {
                DestroyWindow(state.window);
            }
    }
}

void FinishTask(MainWindow& state) {
    const AppUpdateReport& report = EndTask(state.task);
    if (state.closing) {
        DestroyWindow(state.window);
    } else if (report.result == APP_UPDATE_OK) {
        GoOn(state);
    } else {
        EnterPhase(state, PhaseBefore(state.phase), ResultText(report));
    }
}

void HandleCommand(MainWindow& state, int command) {
    if (command == ID_CANCEL_UPDATE && TaskRuns(state) && !state.cancelRequested) {
        Cancel(state);
    } else if (command == ID_CHECK && state.phase == Phase::Idle) {
        Check(state);
    } else if (command == ID_DOWNLOAD && state.phase == Phase::Found) {
        Download(state);
    } else if (command == ID_UPDATE && state.phase == Phase::Downloaded) {
        Update(state);
    }
}

// Returns false for a message that the dialog handles itself.
bool HandleMessage(MainWindow& state, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case WM_COMMAND:
            HandleCommand(state, LOWORD(wParam));
            return true;
        case kTaskProgress:
            if (state.phase == Phase::Downloading && !state.cancelRequested) {
                TellProgress(state, wParam, static_cast<std::uint64_t>(lParam));
            }
            return true;
        case kTaskDone:
            FinishTask(state);
            return true;
        case WM_CLOSE:
            Close(state);
            return true;
        case WM_DESTROY:
            PostQuitMessage(0);
            return true;
        default:
            return false;
    }
}

INT_PTR CALLBACK ProcessMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* state = static_cast<MainWindow*>(GetPropW(window, kStateProperty));
    if (state == nullptr) {
        return FALSE;
    }
    try {
        return HandleMessage(*state, message, wParam, lParam) ? TRUE : FALSE;
    } catch (const std::exception& error) {
        TellUser(*state, std::filesystem::path(error.what()).native());
        return TRUE;
    }
}

HWND CreateMainWindow() {
    const INITCOMMONCONTROLSEX controls{sizeof(controls), ICC_PROGRESS_CLASS};
    InitCommonControlsEx(&controls);
    HWND window = CreateDialogParamW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(ID_MAIN_WINDOW),
                                     nullptr, ProcessMessage, 0);
    if (window == nullptr) {
        throw std::runtime_error("Cannot create the application's window");
    }
    return window;
}

}  // namespace

void ShowMainWindow(const Application& application, const Greeting& greeting,
                    AppUpdateSession* session) {
    MainWindow state;
    state.window = CreateMainWindow();
    state.task.window = state.window;
    state.task.session = session;
    SetPropW(state.window, kStateProperty, &state);
    SetDlgItemTextW(state.window, ID_MESSAGE, greeting.message.c_str());
    EnterPhase(state, Phase::NoUpdates, greeting.updateStatus);
    if (session != nullptr) {
        Check(state);
    }
    // Last: whoever finds the window by its title finds it complete.
    SetWindowTextW(state.window,
                   (std::wstring(kApplicationName) + L" " + application.version).c_str());

    MSG next{};
    while (GetMessageW(&next, nullptr, 0, 0) > 0) {
        if (IsDialogMessageW(state.window, &next) == 0) {
            TranslateMessage(&next);
            DispatchMessageW(&next);
        }
    }
}

}  // namespace corvellan
