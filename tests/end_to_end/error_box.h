#pragma once

#include <string>

#include "end_to_end/whole_update.h"
#include "support/windows_api.h"

namespace updater {

struct MessageWindow {
    HWND window = nullptr;
    std::wstring title;
    std::wstring text;
};

/// Waits for the message box of a process and reads it. Raises `std::runtime_error` when the
/// process ends without one.
MessageWindow AwaitMessageBox(HANDLE process);

/// The same for an update's broker, with all that is known of the update.
MessageWindow AwaitErrorBox(WholeUpdate& update);

/// Closes the box as a user does and waits until it is gone.
void CloseMessageBox(const MessageWindow& box);

}  // namespace updater
