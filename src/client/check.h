#pragma once

#include <string>

#include "client/corvellan_update.h"
#include "client/session.h"

namespace updater {

/// What a check has come to.
struct CheckResult {
    /// APP_UPDATE_OK with `session.offer`, APP_UPDATE_NOTHING_NEW or APP_UPDATE_NOT_YET.
    AppUpdateResult result = APP_UPDATE_OK;
    std::string sentence;
};

/// Fetches the feed, if it has changed since it was kept, verifies and judges it. What it says is
/// kept before anything is offered. Raises `ClientFailure` as `Fetch`, `OpenEnvelope`, `ReadFeed`,
/// `RequireCredible`, `JudgeOffer` and `WriteFeedStore` do, and APP_UPDATE_SERVER_ERROR.
CheckResult CheckForUpdate(Session& session);

}  // namespace updater
