#include "client/feed.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <vector>

#include "client/envelope.h"
#include "client/failure.h"
#include "client/feed_address.h"
#include "client/json_reading.h"
#include "support/json_text.h"

namespace updater {

namespace {

constexpr char kVersionName[] = "version";
constexpr char kSizeName[] = "size";
constexpr char kSha256Name[] = "sha256";
constexpr char kAddressName[] = "address";
constexpr char kIssueName[] = "issue";
constexpr char kPublishedName[] = "published";
constexpr char kExpiresName[] = "expires";
constexpr char kChannelName[] = "channel";
constexpr char kLowestVersionName[] = "lowestVersion";
constexpr char kShareName[] = "share";
constexpr char kNotesName[] = "notes";

constexpr std::uint64_t kLargestSetup = 8ULL * 1024 * 1024 * 1024;
constexpr std::size_t kLongestChannel = 32;
constexpr std::size_t kDigestDigits = 64;
constexpr std::uint32_t kWholeShare = 100;

[[noreturn]] void RaiseMalformed(const std::string& problem) {
    throw ClientFailure(APP_UPDATE_FEED_MALFORMED, "The feed's content is malformed: " + problem);
}

[[noreturn]] void RaiseNotAllowed(std::string_view name) {
    RaiseMalformed('"' + std::string(name) + "\" has a value that is not allowed");
}

bool HasName(const JsonFields& fields, std::string_view name) {
    return std::ranges::find(fields, name, &JsonField::name) != fields.end();
}

template <typename Content>
const Content& Require(const JsonFields& fields, std::string_view name) {
    if (!HasName(fields, name)) {
        RaiseMalformed('"' + std::string(name) + "\" is missing");
    }
    const auto* const content = FindJson<Content>(fields, name);
    if (content == nullptr) {
        RaiseNotAllowed(name);
    }
    return *content;
}

std::uint64_t RequireNumber(const JsonFields& fields, std::string_view name, std::uint64_t lowest,
                            std::uint64_t highest) {
    const auto number = Require<std::uint64_t>(fields, name);
    if (number < lowest || number > highest) {
        RaiseNotAllowed(name);
    }
    return number;
}

std::string RequireText(const JsonFields& fields, std::string_view name,
                        bool (*isAllowed)(std::string_view text)) {
    const auto& text = Require<std::string>(fields, name);
    if (!isAllowed(text)) {
        RaiseNotAllowed(name);
    }
    return text;
}

VersionNumber RequireVersion(const JsonFields& fields, std::string_view name) {
    const std::optional<VersionNumber> version =
        ReadVersionNumber(Require<std::string>(fields, name));
    if (!version) {
        RaiseNotAllowed(name);
    }
    return *version;
}

UnixTime RequireTime(const JsonFields& fields, std::string_view name) {
    return ReadFeedTime(Require<std::string>(fields, name), name);
}

bool IsDigit(char character) {
    return character >= '0' && character <= '9';
}

bool IsDigest(std::string_view text) {
    return text.size() == kDigestDigits && std::ranges::all_of(text, [](char digit) {
               return IsDigit(digit) || (digit >= 'a' && digit <= 'f');
           });
}

JsonFields ReadFields(std::string_view payload) {
    if (payload.size() > kLargestEnvelope) {
        RaiseMalformed("it has more than " + std::to_string(kLargestEnvelope) + " bytes");
    }
    JsonReading reading = ReadJsonObject(payload);
    if (!reading.object) {
        RaiseMalformed(reading.problem);
    }
    return std::move(*reading.object);
}

}  // namespace

bool IsChannelName(std::string_view text) {
    return !text.empty() && text.size() <= kLongestChannel &&
           std::ranges::all_of(text, [](char character) {
               return IsDigit(character) || (character >= 'a' && character <= 'z') ||
                      character == '-';
           });
}

Feed ReadFeed(std::string_view payload) {
    constexpr std::uint64_t kHighestIssue = std::numeric_limits<std::uint32_t>::max();
    const JsonFields fields = ReadFields(payload);
    Feed feed;
    feed.version = RequireVersion(fields, kVersionName);
    feed.size = RequireNumber(fields, kSizeName, 1, kLargestSetup);
    feed.sha256 = RequireText(fields, kSha256Name, IsDigest);
    feed.address = RequireText(fields, kAddressName, IsFeedAddress);
    feed.issue = static_cast<std::uint32_t>(RequireNumber(fields, kIssueName, 1, kHighestIssue));
    feed.published = RequireTime(fields, kPublishedName);
    feed.expires = RequireTime(fields, kExpiresName);
    feed.channel = RequireText(fields, kChannelName, IsChannelName);
    if (HasName(fields, kLowestVersionName)) {
        feed.lowestVersion = RequireVersion(fields, kLowestVersionName);
    }
    if (HasName(fields, kShareName)) {
        feed.share = static_cast<std::uint32_t>(RequireNumber(fields, kShareName, 0, kWholeShare));
    }
    if (HasName(fields, kNotesName)) {
        feed.notes = RequireText(fields, kNotesName, IsAbsoluteFeedAddress);
    }
    return feed;
}

std::string WriteFeed(const Feed& feed) {
    std::vector<JsonMember> members = {
        {kVersionName, JsonString(VersionText(feed.version))},
        {kSizeName, std::to_string(feed.size)},
        {kSha256Name, JsonString(feed.sha256)},
        {kAddressName, JsonString(feed.address)},
        {kIssueName, std::to_string(feed.issue)},
        {kPublishedName, JsonString(FeedTimeText(feed.published))},
        {kExpiresName, JsonString(FeedTimeText(feed.expires))},
        {kChannelName, JsonString(feed.channel)},
    };
    if (feed.lowestVersion != VersionNumber()) {
        members.push_back({kLowestVersionName, JsonString(VersionText(feed.lowestVersion))});
    }
    if (feed.share != kWholeShare) {
        members.push_back({kShareName, std::to_string(feed.share)});
    }
    if (!feed.notes.empty()) {
        members.push_back({kNotesName, JsonString(feed.notes)});
    }
    std::string payload = JsonObject(members);
    ReadFeed(payload);
    return payload;
}

UnixTime ReadFeedTime(std::string_view text, std::string_view key) {
    const std::optional<UnixTime> time = ReadTime(text);
    if (!time) {
        RaiseNotAllowed(key);
    }
    return *time;
}

}  // namespace updater
