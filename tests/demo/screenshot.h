#pragma once

#include <filesystem>

#include "support/windows_api.h"

namespace updater {

/// Saves what is on the screen where the window is, as a PNG file, once it stays the same. Raises
/// `std::runtime_error`.
void SaveScreenshot(HWND window, const std::filesystem::path& file);

}  // namespace updater
