#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>

#include "client/corvellan_update.h"
#include "client/last_update.h"
#include "client/outcome.h"
#include "client/update_record.h"
#include "support/handle.h"

namespace updater {

/// An update that this process has started, while the updater's broker runs.
struct RunningUpdate {
    std::filesystem::path jobDirectory;
    LastUpdate kept;
    UniqueHandle broker;
    RecordWatch watch;
    AppUpdateState state = APP_UPDATE_STATE_STARTED;
    bool cancelRequested = false;
};

/// What waiting for an update has come to.
struct WaitResult {
    /// The new state; nothing when it is the old one or the update has ended.
    std::optional<AppUpdateState> state;
    /// Set when the update has ended.
    std::optional<UpdateEnd> end;
};

/// Waits at most so many milliseconds (0xFFFFFFFF: without a limit) for a new state or the end. The
/// lock guards what another thread may set, `cancelRequested`; it is not held while waiting. Nobody
/// is told that an update is ready that has ended or is to be cancelled.
WaitResult AwaitUpdate(RunningUpdate& update, std::mutex& lock, std::uint32_t milliseconds);

}  // namespace updater
