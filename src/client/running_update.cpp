#include "client/running_update.h"

#include <algorithm>

#include "support/process_utilities.h"
#include "support/status_file.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr std::uint32_t kRoundMilliseconds = 50;

bool IsCancelRequested(const RunningUpdate& update, std::mutex& lock) {
    const std::scoped_lock locked(lock);
    return update.cancelRequested;
}

AppUpdateState StateOf(const UpdateRecord& record) {
    if (record.state == kStateReady) {
        return APP_UPDATE_STATE_READY;
    }
    return record.state == kStateAuthorized ? APP_UPDATE_STATE_AUTHORIZED
                                            : APP_UPDATE_STATE_STARTED;
}

// Looks once.
WaitResult LookAtUpdate(RunningUpdate& update, std::mutex& lock) {
    // Before the record: what is read then is the last word.
    const bool hasEnded = IsSignalledWithin(update.broker.get(), 0);
    if (!LookAtRecord(update.watch, update.jobDirectory)) {
        return {};
    }
    const bool cancelRequested = IsCancelRequested(update, lock);
    if (hasEnded) {
        return {std::nullopt, EndOfUpdate(update.watch.record, {true, cancelRequested})};
    }
    const AppUpdateState recorded =
        update.watch.record ? StateOf(*update.watch.record) : update.state;
    const AppUpdateState state = std::max(update.state, recorded);
    if (state == update.state || (state == APP_UPDATE_STATE_READY && cancelRequested) ||
        IsSignalledWithin(update.broker.get(), 0)) {
        return {};
    }
    update.state = state;
    return {state, std::nullopt};
}

}  // namespace

WaitResult AwaitUpdate(RunningUpdate& update, std::mutex& lock, std::uint32_t milliseconds) {
    const std::uint64_t begin = GetTickCount64();
    for (;;) {
        WaitResult result = LookAtUpdate(update, lock);
        const std::uint64_t passed = GetTickCount64() - begin;
        const bool isOver = milliseconds != INFINITE && passed >= milliseconds;
        if (result.state || result.end || isOver) {
            return result;
        }
        const std::uint64_t left =
            milliseconds == INFINITE ? kRoundMilliseconds : milliseconds - passed;
        const auto round = static_cast<DWORD>(std::min<std::uint64_t>(left, kRoundMilliseconds));
        // An ended broker's last record still has to come to rest.
        if (IsSignalledWithin(update.broker.get(), round)) {
            Sleep(round);
        }
    }
}

}  // namespace updater
