#pragma once

#include <filesystem>

#include "support/handle.h"
#include "support/windows_api.h"

namespace updater {

/// The copy of the application that tells the user of an update, in the user's local data.
std::filesystem::path NoticeProgram();

/// A running one.
struct Notice {
    UniqueHandle process;
    HWND window = nullptr;
};

/// Waits until its window is open.
Notice AwaitNotice();

}  // namespace updater
