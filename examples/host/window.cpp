#include "window.h"

#include <windows.h>

#include <cstdint>
#include <exception>
#include <optional>
#include <stdexcept>
#include <utility>

#include "controls.h"
#include "handle.h"
#include "names.h"
#include "text.h"
#include "update_feed.h"
#include "update_job.h"
#include "update_start.h"
#include "update_status.h"

namespace corvellan {

namespace {

constexpr wchar_t kStateProperty[] = L"ApplicationState";

constexpr UINT_PTR kUpdateTimer = 1;
constexpr UINT kUpdateTimerInterval = 100;

/// An update that the updater prepares while the application still runs.
struct PendingUpdate {
    std::filesystem::path jobDirectory;
    UniqueHandle updater;
    std::uint64_t statusMark = 0;
    bool cancelRequested = false;
};

struct MainWindow {
    const Application& application;
    std::optional<PendingUpdate> update;
};

void TellUser(HWND window, const std::wstring& message) {
    SetDlgItemTextW(window, ID_MESSAGE, message.c_str());
}

void EnableButton(HWND window, int button, bool enabled) {
    EnableWindow(GetDlgItem(window, button), enabled ? TRUE : FALSE);
}

PendingUpdate PrepareUpdate(const Application& application, const UpdateOffer& offer) {
    const std::filesystem::path jobDirectory = CreateJobDirectory();
    return {jobDirectory, StartUpdater(application, offer, jobDirectory)};
}

void BeginUpdate(HWND window, MainWindow& state) {
    const UpdateOffer offer = ReadUpdateFeed(state.application);
    if (offer.version == state.application.version) {
        TellUser(window, std::wstring(kApplicationName) + L" is up to date");
        return;
    }
    state.update = PrepareUpdate(state.application, offer);
    SetTimer(window, kUpdateTimer, kUpdateTimerInterval, nullptr);
    EnableButton(window, ID_UPDATE, false);
    EnableButton(window, ID_CANCEL_UPDATE, true);
    TellUser(window, L"Preparing the update to " + offer.version);
}

void CancelUpdate(HWND window, PendingUpdate& update) {
    RequestCancellation(update.jobDirectory);
    update.cancelRequested = true;
    EnableButton(window, ID_CANCEL_UPDATE, false);
    TellUser(window, L"Cancelling the update");
}

void EndUpdate(HWND window, MainWindow& state, const std::wstring& message) {
    KillTimer(window, kUpdateTimer);
    state.update.reset();
    EnableButton(window, ID_CANCEL_UPDATE, false);
    EnableButton(window, ID_UPDATE, true);
    TellUser(window, message);
}

std::wstring DescribeEnd(const PendingUpdate& update, const std::optional<UpdateStatus>& status,
                         const std::wstring& version) {
    if (update.cancelRequested) {
        return L"The update was cancelled";
    }
    return status ? DescribeStatus(*status, version) : L"The updater ended without a report";
}

// The application closes only when the updater has its rights and a verified setup program: a user
// who declines the administrator prompt goes on working.
void FollowUpdate(HWND window, MainWindow& state) {
    PendingUpdate& update = *state.update;
    const bool updaterEnded = WaitForSingleObject(update.updater.get(), 0) == WAIT_OBJECT_0;
    const std::uint64_t mark = ReadStatusMark(update.jobDirectory);
    if (std::exchange(update.statusMark, mark) != mark && !updaterEnded) {
        return;
    }
    const std::optional<UpdateStatus> status = ReadUpdateStatus(update.jobDirectory);
    if (updaterEnded || (status && IsOutcome(*status))) {
        const std::wstring end = DescribeEnd(update, status, state.application.version);
        MarkOutcomeTold(update.jobDirectory);
        EndUpdate(window, state, end);
    } else if (status && IsReadyForExit(*status) && !update.cancelRequested) {
        DestroyWindow(window);
    }
}

void HandleCommand(HWND window, MainWindow& state, int command) {
    if (command == ID_UPDATE && !state.update) {
        BeginUpdate(window, state);
    } else if (command == ID_CANCEL_UPDATE && state.update) {
        CancelUpdate(window, *state.update);
    }
}

// Returns false for a message that the dialog handles itself.
bool HandleMessage(HWND window, MainWindow& state, UINT message, WPARAM wParam) {
    switch (message) {
        case WM_COMMAND:
            HandleCommand(window, state, LOWORD(wParam));
            return true;
        case WM_TIMER:
            if (state.update) {
                FollowUpdate(window, state);
            }
            return true;
        case WM_CLOSE:
            DestroyWindow(window);
            return true;
        case WM_DESTROY:
            PostQuitMessage(0);
            return true;
        default:
            return false;
    }
}

INT_PTR CALLBACK ProcessMessage(HWND window, UINT message, WPARAM wParam, LPARAM) {
    auto* state = static_cast<MainWindow*>(GetPropW(window, kStateProperty));
    if (state == nullptr) {
        return FALSE;
    }
    try {
        return HandleMessage(window, *state, message, wParam) ? TRUE : FALSE;
    } catch (const std::exception& error) {
        TellUser(window, Widen(error.what()));
        return TRUE;
    }
}

}  // namespace

void ShowMainWindow(const Application& application, const std::wstring& message) {
    MainWindow state{application, std::nullopt};
    HWND window = CreateDialogParamW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(ID_MAIN_WINDOW),
                                     nullptr, ProcessMessage, 0);
    if (window == nullptr) {
        throw std::runtime_error("Cannot create the application's window");
    }
    SetPropW(window, kStateProperty, &state);
    TellUser(window, message);
    // Last: whoever finds the window by its title finds it complete.
    SetWindowTextW(window, (std::wstring(kApplicationName) + L" " + application.version).c_str());

    MSG next{};
    while (GetMessageW(&next, nullptr, 0, 0) > 0) {
        if (IsDialogMessageW(window, &next) == 0) {
            TranslateMessage(&next);
            DispatchMessageW(&next);
        }
    }
}

}  // namespace corvellan
