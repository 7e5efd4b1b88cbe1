#pragma once

#include <corvellan_update.h>

#include <string>

#include "application.h"

namespace corvellan {

/// What the window begins with.
struct Greeting {
    /// A welcome, or how the last update ended.
    std::wstring message;
    /// How it stands with updates.
    std::wstring updateStatus;
};

/// Shows the application's window and returns when it is closed. Looks for an update at once, and
/// never without a session.
void ShowMainWindow(const Application& application, const Greeting& greeting,
                    AppUpdateSession* session);

}  // namespace corvellan
