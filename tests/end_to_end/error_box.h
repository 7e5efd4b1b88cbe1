#pragma once

#include <cstdint>
#include <string>

#include "support/windows_api.h"

namespace updater {

struct MessageWindow {
    HWND window = nullptr;
    std::wstring title;
    std::wstring text;
};

/// Waits for a process's message box and reads it. Raises `std::runtime_error` when none appears.
MessageWindow AwaitMessageBox(std::uint32_t processId);

/// Closes the box as a user does and waits until it is gone.
void CloseMessageBox(const MessageWindow& box);

/// The title of the error box that the updater shows, and the first line of its text.
inline constexpr wchar_t kUpdaterBoxTitle[] = L"Corvellan更新";
inline constexpr wchar_t kUpdaterBoxHeading[] = L"升级未完成，失败记录：";

}  // namespace updater
