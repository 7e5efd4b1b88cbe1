#include "client/feed_store.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <string_view>
#include <vector>

#include "client/envelope.h"
#include "client/feed.h"
#include "client/guid_text.h"
#include "client/json_reading.h"
#include "client/text_digest.h"
#include "client/whole_file.h"
#include "support/json_text.h"
#include "support/process_utilities.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

constexpr wchar_t kLockFile[] = L"update.lock";

constexpr char kInstallationName[] = "installation";
constexpr char kIssuesName[] = "issues";
constexpr char kAddressName[] = "feedAddress";
constexpr char kTagName[] = "entityTag";
// Of the envelope that the address and the tag belong to: the two files are replaced one after the
// other.
constexpr char kDigestName[] = "feedSha256";

constexpr std::size_t kLargestState = std::size_t{1024} * 1024;
constexpr std::size_t kLongestTag = 1024;

// What can be a header of a request, and nothing more than that.
bool IsEntityTag(std::string_view text) {
    return text.size() <= kLongestTag && std::ranges::all_of(text, [](char character) {
               return character >= ' ' && character <= '~';
           });
}

std::string EnvelopeDigest(std::string_view envelope) {
    return envelope.empty() ? "" : Sha256Text(DigestOfText(envelope));
}

bool TakeIssues(const JsonFields& fields, FeedStore& store) {
    for (const JsonField& field : fields) {
        const auto* const issue = std::get_if<std::uint64_t>(&field.value.content);
        if (!IsChannelName(field.name) || issue == nullptr || *issue == 0 ||
            *issue > std::numeric_limits<std::uint32_t>::max()) {
            return false;
        }
        store.issues[field.name] = static_cast<std::uint32_t>(*issue);
    }
    return true;
}

// Takes an installation's number and the issues from the state's file; false for a damaged one.
bool TakeState(const JsonFields& fields, FeedStore& store) {
    const auto* const installation = FindJson<std::string>(fields, kInstallationName);
    const auto* const issues = FindJson<JsonFields>(fields, kIssuesName);
    if (installation == nullptr || !IsGuidText(Utf8ToWide(*installation)) || issues == nullptr ||
        !TakeIssues(*issues, store)) {
        return false;
    }
    store.installation = *installation;
    return true;
}

// Takes the envelope and what belongs to it; false unless all of it fits together.
bool TakeEnvelope(const JsonFields& fields, std::string envelope, FeedStore& store) {
    const auto* const address = FindJson<std::string>(fields, kAddressName);
    const auto* const tag = FindJson<std::string>(fields, kTagName);
    const auto* const digest = FindJson<std::string>(fields, kDigestName);
    if (address == nullptr || tag == nullptr || digest == nullptr || !IsEntityTag(*tag) ||
        *digest != EnvelopeDigest(envelope)) {
        return false;
    }
    store.feedAddress = *address;
    store.entityTag = *tag;
    store.envelope = std::move(envelope);
    return true;
}

// What has become of a store whose state is missing or damaged. The envelope, if there is one, has
// its signature.
FeedStore NewStore(bool wasDamaged, std::optional<std::string> envelope) {
    FeedStore store;
    store.installation = WideToUtf8(CreateJobIdentity());
    store.wasDamaged = wasDamaged;
    store.envelope = std::move(envelope).value_or("");
    return store;
}

}  // namespace

UniqueHandle LockFeedStore(const std::filesystem::path& dataDirectory) {
    return TakeLockFile(dataDirectory / kLockFile);
}

FeedStore ReadFeedStore(const std::filesystem::path& dataDirectory) {
    const std::optional<std::string> state =
        ReadFileUpTo(dataDirectory / kStateFile, kLargestState);
    std::optional<std::string> envelope =
        ReadFileUpTo(dataDirectory / kEnvelopeFile, kLargestEnvelope);
    if (!state) {
        const bool wasDamaged = envelope.has_value();
        return NewStore(wasDamaged, std::move(envelope));
    }
    const JsonReading reading =
        state->size() <= kLargestState ? ReadJsonObject(*state) : JsonReading();
    FeedStore store;
    if (!reading.object || !TakeState(*reading.object, store)) {
        return NewStore(true, std::move(envelope));
    }
    store.wasDamaged = !TakeEnvelope(*reading.object, std::move(envelope).value_or(""), store);
    return store;
}

void WriteFeedStore(const std::filesystem::path& dataDirectory, const FeedStore& store) {
    std::vector<JsonMember> issues;
    std::ranges::transform(store.issues, std::back_inserter(issues), [](const auto& issue) {
        return JsonMember{issue.first, std::to_string(issue.second)};
    });
    const bool hasTag = IsEntityTag(store.entityTag);
    const std::string state =
        JsonObject({{kInstallationName, JsonString(store.installation)},
                    {kIssuesName, JsonObject(issues)},
                    {kAddressName, JsonString(store.feedAddress)},
                    {kTagName, JsonString(hasTag ? store.entityTag : "")},
                    {kDigestName, JsonString(EnvelopeDigest(store.envelope))}});
    // The issues first: no feed may be seen that is not known to have been seen.
    ReplaceWholeFile(dataDirectory / kStateFile, state);
    ReplaceWholeFile(dataDirectory / kEnvelopeFile, store.envelope);
}

}  // namespace updater
