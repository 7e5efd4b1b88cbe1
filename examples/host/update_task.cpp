#include "update_task.h"

#include <cstdint>
#include <utility>

namespace corvellan {

namespace {

constexpr std::uint32_t kFollowInterval = 200;

template <typename Work>
void Begin(UpdateTask& task, Work work) {
    task.report = {};
    task.report.size = sizeof(task.report);
    task.thread = std::thread([&task, work = std::move(work)] {
        work();
        PostMessageW(task.window, kTaskDone, 0, 0);
    });
}

void __cdecl TellProgress(void* context, std::uint64_t done, std::uint64_t total) {
    PostMessageW(static_cast<UpdateTask*>(context)->window, kTaskProgress, done,
                 static_cast<LPARAM>(total));
}

// The application closes only when the updater has its rights and a verified setup program: a user
// who declines the administrator prompt goes on working.
void AwaitReady(UpdateTask& task) {
    AppUpdateState state = APP_UPDATE_STATE_STARTED;
    AppUpdateResult result = APP_UPDATE_OK;
    do {
        result = AppUpdateWait(task.session, kFollowInterval, &state, &task.report);
    } while (result == APP_UPDATE_NO_CHANGE ||
             (result == APP_UPDATE_OK && state != APP_UPDATE_STATE_READY));
}

}  // namespace

void BeginCheck(UpdateTask& task, AppUpdateOffer& offer) {
    Begin(task, [&task, &offer] {
        offer = {};
        offer.size = sizeof(offer);
        AppUpdateCheck(task.session, &offer, &task.report);
        AppUpdateTidyUp(task.session, nullptr);
    });
}

void BeginDownload(UpdateTask& task) {
    Begin(task, [&task] { AppUpdateDownload(task.session, TellProgress, &task, &task.report); });
}

void BeginUpdate(UpdateTask& task) {
    Begin(task, [&task] {
        if (AppUpdateStart(task.session, &task.report) == APP_UPDATE_OK) {
            AwaitReady(task);
        }
    });
}

void FollowUpdate(UpdateTask& task) {
    Begin(task, [&task] { AwaitReady(task); });
}

const AppUpdateReport& EndTask(UpdateTask& task) {
    task.thread.join();
    return task.report;
}

}  // namespace corvellan
