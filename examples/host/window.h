#pragma once

#include <string>

#include "application.h"

namespace corvellan {

/// Shows the application's window with `message` in it, and returns when the window is closed.
void ShowMainWindow(const Application& application, const std::wstring& message);

}  // namespace corvellan
