#pragma once

#include <span>
#include <string>
#include <string_view>

#include "client/corvellan_update.h"

namespace updater {

/// What a function of the interface has come to, in words.
struct Answer {
    AppUpdateResult result = APP_UPDATE_OK;
    /// UTF-8.
    std::string sentence;
};

/// Stores a text that ends with a zero, cut where it is too long, at a whole character.
void StoreText(std::wstring_view text, std::span<wchar_t> target) noexcept;

/// Fills in a report, unless it is null, and returns the result.
AppUpdateResult StoreAnswer(AppUpdateReport* report, const Answer& answer) noexcept;

/// The same for the exception that is being handled: a `ClientFailure` as it stands, another one as
/// APP_UPDATE_OUT_OF_MEMORY, APP_UPDATE_DISK_FULL, APP_UPDATE_FILE_ERROR or
/// APP_UPDATE_SYSTEM_ERROR.
AppUpdateResult StoreCurrentFailure(AppUpdateReport* report) noexcept;

}  // namespace updater
