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

}  // namespace updater
