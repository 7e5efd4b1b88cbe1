#include "client/outcome.h"

#include <string_view>

#include "support/status_file.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr std::string_view kRestoredSuffix = "; previous program restored";
constexpr std::string_view kMismatchSuffix = "; restore version mismatch";

UpdateEnd End(AppUpdateResult result, const char* sentence, const std::string& message) {
    return {result, message.empty() ? sentence : sentence + (": " + message), message};
}

UpdateEnd EndOfFailure(const std::string& message, bool applicationStayed) {
    if (applicationStayed) {
        return End(APP_UPDATE_FAILED, "The update failed before anything was changed", message);
    }
    if (message.ends_with(kRestoredSuffix)) {
        return End(APP_UPDATE_FAILED_RESTORED,
                   "The update failed and the previous program is in place", message);
    }
    if (message.ends_with(kMismatchSuffix)) {
        return End(APP_UPDATE_FAILED_NOT_RESTORED,
                   "The update failed and the previous program is not whole", message);
    }
    return End(APP_UPDATE_FAILED_NOT_RESTORED,
               "The update failed, and whether the previous program is whole is not known",
               message);
}

UpdateEnd EndWithoutOutcome(const EndCircumstances& circumstances, bool wasInstalling) {
    if (circumstances.cancelRequested && !wasInstalling) {
        return End(APP_UPDATE_CANCELLED, "The update was cancelled by the application", {});
    }
    return wasInstalling
               ? End(APP_UPDATE_UPDATER_ENDED,
                     "The updater ended while it installed, and whether the program is whole is "
                     "not known",
                     {})
               : End(APP_UPDATE_UPDATER_ENDED, "The updater ended without an outcome", {});
}

}  // namespace

bool IsOutcome(const UpdateRecord& record) {
    return record.state == kStateSucceeded || record.state == kStateFailed ||
           record.state == kStateCancelled;
}

UpdateEnd EndOfUpdate(const std::optional<UpdateRecord>& record,
                      const EndCircumstances& circumstances) {
    if (!record || !IsOutcome(*record)) {
        return EndWithoutOutcome(circumstances, record && record->state == kStateInstalling);
    }
    if (record->state == kStateFailed) {
        return EndOfFailure(record->message, circumstances.applicationStayed);
    }
    if (record->state == kStateCancelled) {
        return record->exitCode == ERROR_CANCELLED
                   ? End(APP_UPDATE_PROMPT_DECLINED, "The user did not grant administrator rights",
                         record->message)
                   : End(APP_UPDATE_CANCELLED, "The update was cancelled", record->message);
    }
    // Nobody installs anything beside the running application: somebody else wrote this.
    return circumstances.applicationStayed
               ? EndWithoutOutcome(circumstances, false)
               : End(APP_UPDATE_OK, "The update succeeded", record->message);
}

}  // namespace updater
