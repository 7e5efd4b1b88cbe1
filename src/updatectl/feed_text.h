#pragma once

#include <string>

#include "client/feed.h"

namespace updater {

/// Returns what a feed says for people to read, a line for each of its entries.
std::string FeedText(const Feed& feed, UnixTime now);

/// The same as JSON, in one line; "expired" says whether the feed has expired by now.
std::string FeedJson(const Feed& feed, UnixTime now);

/// Whether applications have ceased to believe the feed.
bool HasExpired(const Feed& feed, UnixTime now);

}  // namespace updater
