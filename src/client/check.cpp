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

// The kept envelope counts as long as it is this feed's and a key of today's has signed it.
std::optional<std::string> PayloadOfKept(const FeedStore& store, const ClientSettings& settings) {
    if (store.entityTag.empty() || store.feedAddress != WideToUtf8(settings.feedAddress)) {
        return std::nullopt;
    }
    try {
        return OpenEnvelope(store.envelope, settings.publicKeys);
    } catch (const ClientFailure& failure) {
        if (failure.result != APP_UPDATE_FEED_MALFORMED &&
            failure.result != APP_UPDATE_BAD_SIGNATURE) {
            throw;
        }
        return std::nullopt;
    }
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

}  // namespace

CheckResult CheckForUpdate(Session& session) {
    const ClientSettings& settings = session.settings;
    RaiseIfCancelled(session.cancellation);
    session.offer.reset();
    FeedStore store = ReadFeedStore(settings.dataDirectory);
    const bool wasDamaged = store.wasDamaged;
    const std::optional<std::string> kept = PayloadOfKept(store, settings);
    FeedAnswer answer = AskServer(session, kept ? std::optional(store.entityTag) : std::nullopt);
    const Feed feed = ReadFeed(answer.envelope ? OpenEnvelope(*answer.envelope, settings.publicKeys)
                                               : kept.value());

    const auto seen = store.issues.find(settings.channel);
    const FeedCircumstances circumstances{
        .runningVersion = settings.runningVersion,
        .channel = settings.channel,
        .now = CurrentTime(),
        .seenIssue = seen == store.issues.end() ? 0 : seen->second,
        .installation = store.installation,
        .downgradeAllowed = settings.downgradeAllowed};
    RequireCredible(feed, circumstances);
    // Before anything is offered: an older feed must not be believed after a crash either.
    Keep(settings, store, std::move(answer), feed);

    const AppUpdateResult result = JudgeOffer(feed, circumstances);
    std::string sentence = SentenceOf(result, feed, wasDamaged);
    if (result == APP_UPDATE_OK) {
        session.offer =
            SessionOffer{feed, Utf8ToWide(VersionText(feed.version)), Utf8ToWide(feed.notes)};
    }
    return {result, std::move(sentence)};
}

}  // namespace updater
