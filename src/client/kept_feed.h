#pragma once

#include <optional>
#include <span>

#include "client/feed.h"
#include "client/feed_store.h"
#include "client/signature.h"

namespace updater {

/// Returns the feed of the store's envelope; nothing when none is kept, or none that one of the
/// keys has signed. Raises `ClientFailure` APP_UPDATE_SYSTEM_ERROR as `OpenEnvelope` does.
std::optional<Feed> ReadKeptFeed(const FeedStore& store, std::span<const PublicKey> keys);

/// After damage, takes the kept feed's issue number for one that was seen: it is signed, so that
/// number was published. Raises what `ReadKeptFeed` does.
void RestoreSeenIssue(FeedStore& store, std::span<const PublicKey> keys);

}  // namespace updater
