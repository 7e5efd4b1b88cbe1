#pragma once

#include <corvellan_update.h>
#include <windows.h>

#include <thread>

namespace corvellan {

// The library's calls block until they are done, and a window must not. So each step of an update
// is a task on a thread of its own, one at a time, that sends messages to the window:

/// How many bytes are downloaded (WPARAM), of how many (LPARAM).
inline constexpr UINT kTaskProgress = WM_APP;
/// The last one. `EndTask` tells how the task ended.
inline constexpr UINT kTaskDone = WM_APP + 1;

/// The window's, which outlives its tasks.
struct UpdateTask {
    HWND window = nullptr;
    AppUpdateSession* session = nullptr;
    AppUpdateReport report{};
    std::thread thread;
};

/// Looks for a new version, which `offer` describes when there is one, and deletes what is left of
/// earlier ones.
void BeginCheck(UpdateTask& task, AppUpdateOffer& offer);

/// Downloads the version that was offered last.
void BeginDownload(UpdateTask& task);

/// Starts the updater on what was downloaded, and follows the update until the application has to
/// close, which is APP_UPDATE_OK, or until it has ended.
void BeginUpdate(UpdateTask& task);

/// Follows an update further although the application could close.
void FollowUpdate(UpdateTask& task);

/// Waits for the end of the task's thread and returns how it ended.
const AppUpdateReport& EndTask(UpdateTask& task);

}  // namespace corvellan
