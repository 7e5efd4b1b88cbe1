#pragma once

#include <optional>
#include <string>

#include "client/corvellan_update.h"
#include "client/update_record.h"

namespace updater {

/// How an update has ended.
struct UpdateEnd {
    AppUpdateResult result = APP_UPDATE_OK;
    /// One English sentence without its full stop, UTF-8.
    std::string sentence;
    /// The updater's own words, or empty.
    std::string message;
};

/// What was going on around the end.
struct EndCircumstances {
    /// The application that started the update has been running all the time, and so nothing can
    /// have been changed. The record itself does not tell a failure before the installation from
    /// one in putting the previous program back.
    bool applicationStayed = false;
    /// The application asked the updater to give up.
    bool cancelRequested = false;
};

/// Returns how an update has ended at which nobody works any more, by its last record, if there is
/// one.
UpdateEnd EndOfUpdate(const std::optional<UpdateRecord>& record,
                      const EndCircumstances& circumstances);

/// Whether the record says how the update has ended.
bool IsOutcome(const UpdateRecord& record);

}  // namespace updater
