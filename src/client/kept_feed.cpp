#include "client/kept_feed.h"

#include <algorithm>

#include "client/envelope.h"
#include "client/failure.h"

namespace updater {

std::optional<Feed> ReadKeptFeed(const FeedStore& store, std::span<const PublicKey> keys) {
    try {
        return ReadFeed(OpenEnvelope(store.envelope, keys));
    } catch (const ClientFailure& failure) {
        if (failure.result == APP_UPDATE_SYSTEM_ERROR) {
            throw;
        }
        return std::nullopt;
    }
}

void RestoreSeenIssue(FeedStore& store, std::span<const PublicKey> keys) {
    if (!store.wasDamaged) {
        return;
    }
    if (const std::optional<Feed> kept = ReadKeptFeed(store, keys)) {
        std::uint32_t& issue = store.issues[kept->channel];
        issue = std::max(issue, kept->issue);
    }
}

}  // namespace updater
