#pragma once

#include <cstdint>
#include <string>

#include "client/corvellan_update.h"
#include "client/feed.h"

namespace updater {

/// What a feed is judged by.
struct FeedCircumstances {
    VersionNumber runningVersion;
    std::string channel;
    UnixTime now = 0;
    /// The highest issue number seen of the channel, or 0.
    std::uint32_t seenIssue = 0;
    /// See `FeedStore`.
    std::string installation;
    bool downgradeAllowed = false;
};

/// Raises `ClientFailure` for a feed that must not be believed: APP_UPDATE_WRONG_CHANNEL,
/// APP_UPDATE_FEED_EXPIRED or APP_UPDATE_FEED_OLDER, in this order.
void RequireCredible(const Feed& feed, const FeedCircumstances& circumstances);

/// Returns APP_UPDATE_OK for an offer that is for this machine, else APP_UPDATE_NOTHING_NEW or
/// APP_UPDATE_NOT_YET. Raises `ClientFailure` APP_UPDATE_TOO_OLD_TO_UPDATE. Nothing new comes
/// first, the share last.
AppUpdateResult JudgeOffer(const Feed& feed, const FeedCircumstances& circumstances);

/// Returns the number, 0 to 99, by which a release's share is given out to installations.
std::uint32_t ShareNumber(const std::string& installation, const VersionNumber& version);

/// The system's clock.
UnixTime CurrentTime();

}  // namespace updater
