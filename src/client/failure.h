#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "client/corvellan_update.h"

namespace updater {

/// A failure that the application is told by its code; the message, UTF-8, is one English sentence
/// without its full stop. `systemError` is the Windows error number behind it, or 0.
struct ClientFailure : std::runtime_error {
    ClientFailure(AppUpdateResult failureResult, const std::string& sentence,
                  std::uint32_t windowsError = 0)
        : std::runtime_error(sentence), result(failureResult), systemError(windowsError) {}

    AppUpdateResult result;
    std::uint32_t systemError;
};

}  // namespace updater
