#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/windows_api.h"

namespace updater {

/// Returns the visible top-level windows of a process.
std::vector<HWND> ListWindows(std::uint32_t processId);

/// Returns a window's or control's text; asks the window itself, so also for another process.
std::wstring WindowText(HWND window);

/// Returns the text of a dialog's longest static control.
std::wstring DialogText(HWND dialog);

}  // namespace updater
