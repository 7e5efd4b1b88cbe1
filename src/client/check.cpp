#include "client/check.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>

#include "client/envelope.h"
#include "client/failure.h"
#include "client/feed_judgement.h"
#include "client/feed_store.h"
#include "client/kept_feed.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

constexpr std::uint32_t kStatusOk = 200;
constexpr std::uint32_t kStatusNotModified = 304;

/// A server's answer; no envelope when it has not changed.
struct FeedAnswer {
    std::optional<std::string> envelope;
    std::string entityTag;
};

[[noreturn]] void RaiseTooLong() {
    throw ClientFailure(APP_UPDATE_FEED_MALFORMED, "The feed has more than 1 MiB");
}

FeedStore ReadStore(const ClientSettings& settings) {
    const UniqueHandle lock = LockFeedStore(settings.dataDirectory);
    return ReadFeedStore(settings.dataDirectory);
}

// The kept feed counts as long as it is this address's and a key of today's has signed it.
std::optional<Feed> KeptFeed(const FeedStore& store, const ClientSettings& settings) {
    return store.entityTag.empty() || store.feedAddress != WideToUtf8(settings.feedAddress)
               ? std::nullopt
               : ReadKeptFeed(store, settings.publicKeys);
}

FeedAnswer AskServer(Session& session, const std::optional<std::string>& entityTag) {
    HttpsRequest request{session.settings.feedAddress, {}};
    if (entityTag) {
        request.headers.push_back(L"If-None-Match: " + Utf8ToWide(*entityTag));
    }
    FeedAnswer answer;
    const auto takeHead = [&](const HttpsHead& head) {
        if (head.status == kStatusNotModified && entityTag) {
            return false;
        }
        if (head.status != kStatusOk) {
            throw ClientFailure(APP_UPDATE_SERVER_ERROR,
                                "The server answers with status " + std::to_string(head.status) +
                                    " instead of the feed " + WideToUtf8(request.address));
        }
        if (head.length.value_or(0) > kLargestEnvelope) {
            RaiseTooLong();
        }
        answer.envelope.emplace();
        answer.entityTag = WideToUtf8(head.entityTag);
        return true;
    };
    const auto takeBytes = [&](std::span<const char> bytes) {
        if (bytes.size() > kLargestEnvelope - answer.envelope->size()) {
            RaiseTooLong();
        }
        answer.envelope->append(bytes.data(), bytes.size());
    };
    Fetch(*session.transport, request, {takeHead, takeBytes});
    return answer;
}

void Keep(const ClientSettings& settings, FeedStore& store, FeedAnswer answer, const Feed& feed) {
    std::uint32_t& issue = store.issues[settings.channel];
    const bool isNews = answer.envelope || feed.issue > issue || store.wasDamaged;
    issue = std::max(issue, feed.issue);
    if (answer.envelope) {
        store.feedAddress = WideToUtf8(settings.feedAddress);
        store.entityTag = std::move(answer.entityTag);
        store.envelope = *std::move(answer.envelope);
    }
    if (isNews) {
        WriteFeedStore(settings.dataDirectory, store);
    }
}

std::string SentenceOf(AppUpdateResult result, const Feed& feed, bool wasDamaged) {
    std::string sentence = "The feed's issue " + std::to_string(feed.issue) + " offers version " +
                           VersionText(feed.version);
    if (result == APP_UPDATE_NOTHING_NEW) {
        sentence += ", which is not new";
    } else if (result == APP_UPDATE_NOT_YET) {
        sentence += ", which is not for this machine yet";
    }
    if (wasDamaged) {
        sentence += "; what was kept of earlier checks was damaged and has been made anew";
    }
    return sentence;
}

FeedCircumstances CircumstancesOf(const ClientSettings& settings, const FeedStore& store) {
    const auto seen = store.issues.find(settings.channel);
    return {.runningVersion = settings.runningVersion,
            .channel = settings.channel,
            .now = CurrentTime(),
            .seenIssue = seen == store.issues.end() ? 0 : seen->second,
            .installation = store.installation,
            .downgradeAllowed = settings.downgradeAllowed};
}

// Keeps a feed that is to be believed, and returns the store, which it reads again: another
// instance of the application may have seen a later feed since the server was asked.
FeedStore TakeFeed(const ClientSettings& settings, FeedAnswer answer, const Feed& feed) {
    const UniqueHandle lock = LockFeedStore(settings.dataDirectory);
    FeedStore store = ReadFeedStore(settings.dataDirectory);
    RestoreSeenIssue(store, settings.publicKeys);
    RequireCredible(feed, CircumstancesOf(settings, store));
    Keep(settings, store, std::move(answer), feed);
    return store;
}

}  // namespace

CheckResult CheckForUpdate(Session& session) {
    const ClientSettings& settings = session.settings;
    RaiseIfCancelled(session.cancellation);
    session.offer.reset();
    const FeedStore before = ReadStore(settings);
    const std::optional<Feed> kept = KeptFeed(before, settings);
    FeedAnswer answer = AskServer(session, kept ? std::optional(before.entityTag) : std::nullopt);
    const Feed feed = answer.envelope
                          ? ReadFeed(OpenEnvelope(*answer.envelope, settings.publicKeys))
                          : kept.value();
    // Before anything is offered: an older feed must not be believed after a crash either.
    const FeedStore store = TakeFeed(settings, std::move(answer), feed);
    const AppUpdateResult result = JudgeOffer(feed, CircumstancesOf(settings, store));
    std::string sentence = SentenceOf(result, feed, store.wasDamaged);
    if (result == APP_UPDATE_OK) {
        session.offer =
            SessionOffer{feed, Utf8ToWide(VersionText(feed.version)), Utf8ToWide(feed.notes)};
    }
    return {result, std::move(sentence)};
}

}  // namespace updater
