#include "updatectl/feed_options.h"

#include <cstdint>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>

#include "client/failure.h"
#include "client/feed_address.h"
#include "client/feed_judgement.h"
#include "support/text_conversion.h"
#include "updatectl/file_access.h"
#include "updatectl/file_names.h"
#include "updatectl/output.h"
#include "updatectl/progress_line.h"
#include "updatectl/signed_feed.h"

namespace updater {

namespace {

constexpr std::wstring_view kAppOption = L"--app";
constexpr std::wstring_view kIssueOption = L"--issue";
constexpr std::wstring_view kExpiresOption = L"--expires";
constexpr std::wstring_view kDaysOption = L"--days";
constexpr std::wstring_view kChannelOption = L"--channel";
constexpr std::wstring_view kAddressOption = L"--address";
constexpr std::wstring_view kLowestOption = L"--lowest";
constexpr std::wstring_view kShareOption = L"--share";
constexpr std::wstring_view kNotesOption = L"--notes";
constexpr std::wstring_view kPublishedOption = L"--published";

constexpr std::uint32_t kHighestIssue = std::numeric_limits<std::uint32_t>::max();
constexpr UnixTime kSecondsPerDay = 86400;

// As the relative address of a file beside the feed: every character that has a meaning in one, or
// that is not ASCII, by its bytes.
std::string AddressOfFile(const std::filesystem::path& file) {
    constexpr std::string_view kPlain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string address;
    for (const char character : WideToUtf8(file.filename().native())) {
        const auto byte = static_cast<unsigned char>(character);
        if (kPlain.find(character) != std::string_view::npos) {
            address.push_back(character);
        } else {
            address.append({'%', kDigits[byte >> 4U], kDigits[byte & 0xFU]});
        }
    }
    return address;
}

std::string ReadText(const CommandOptions& options, std::wstring_view name, const char* otherwise,
                     bool (*isAllowed)(std::string_view text), const char* wanted) {
    const std::optional<std::wstring> value = OptionalValue(options, name);
    if (!value) {
        return otherwise;
    }
    std::string text = WideToUtf8(*value);
    if (!isAllowed(text)) {
        throw UsageError(PrintableText(name) + " needs " + wanted + ", not " +
                         PrintableText(*value));
    }
    return text;
}

std::string Address(const std::filesystem::path& setup, const CommandOptions& options) {
    std::string address = ReadText(options, kAddressOption, "", IsFeedAddress,
                                   "an address that is relative or begins with https://");
    if (!address.empty()) {
        return address;
    }
    RefuseMangledNames();
    const std::wstring name = setup.filename().native();
    if (const std::string_view fault = FaultOfName(name); !fault.empty()) {
        throw std::runtime_error(PrintableText(name) + " " + std::string(fault) +
                                 "; give its address with --address");
    }
    return AddressOfFile(setup);
}

UnixTime ReadTime(std::wstring_view name, const std::wstring& value) {
    try {
        return ReadFeedTime(WideToUtf8(value), WideToUtf8(name));
    } catch (const ClientFailure&) {
        throw UsageError(PrintableText(name) + " needs a time such as 2027-01-31T12:00:00Z, not " +
                         PrintableText(value));
    }
}

VersionNumber ReadLowestVersion(const CommandOptions& options, const VersionNumber& released) {
    const std::optional<std::wstring> value = OptionalValue(options, kLowestOption);
    if (!value) {
        return {};
    }
    const std::optional<VersionNumber> version = ReadVersionNumber(WideToUtf8(*value));
    if (!version) {
        throw UsageError("--lowest needs a version such as 1.2.3.4, not " + PrintableText(*value));
    }
    if (*version > released) {
        throw UsageError("--lowest " + PrintableText(*value) + " is higher than the release, " +
                         VersionText(released));
    }
    return *version;
}

UnixTime ReadExpiry(const CommandOptions& options, UnixTime published, UnixTime now) {
    constexpr NumberRange kDays = {1, 3660};
    const std::wstring_view name = GivenOf(options, kExpiresOption, kDaysOption);
    const std::wstring value = OnlyValue(options, name);
    const UnixTime expires = name == kExpiresOption
                                 ? ReadTime(name, value)
                                 : published + kSecondsPerDay * ReadNumber(name, value, kDays);
    if (expires <= published || expires <= now) {
        throw UsageError("The feed would expire at " + FeedTimeText(expires) +
                         ", which is not after its publication and after now");
    }
    return expires;
}

std::uint32_t IssueAfter(const std::filesystem::path& file, const std::string& channel,
                         const std::vector<PublicKey>& keys) {
    const Feed earlier = ReadSignedFeed(file, keys);
    if (earlier.channel != channel) {
        RaiseUnusable(file, "it is of the channel " + PrintableText(Utf8ToWide(earlier.channel)) +
                                ", not " + PrintableText(Utf8ToWide(channel)));
    }
    if (earlier.issue == kHighestIssue) {
        RaiseUnusable(file, "there is no higher issue number");
    }
    return earlier.issue + 1;
}

std::uint32_t ReadIssue(const CommandOptions& options, const std::string& channel) {
    const std::wstring_view name = GivenOf(options, kIssueOption, kAfterOption);
    const std::wstring value = OnlyValue(options, name);
    return name == kIssueOption ? ReadNumber(name, value, {1, kHighestIssue})
                                : IssueAfter(value, channel, ReadKeys(options));
}

}  // namespace

const std::vector<std::wstring_view>& FeedOptions() {
    static const std::vector<std::wstring_view> kNames = {
        kAppOption,   kIssueOption,   kAfterOption,    kExpiresOption,
        kDaysOption,  kChannelOption, kAddressOption,  kLowestOption,
        kShareOption, kNotesOption,   kPublishedOption};
    return kNames;
}

Feed FeedOf(const std::filesystem::path& setup, const CommandOptions& options) {
    const std::filesystem::path application = OnlyValue(options, kAppOption);
    const UnixTime now = CurrentTime();
    Feed feed;
    feed.channel = ReadText(options, kChannelOption, "stable", IsChannelName,
                            "a name of the characters a to z, 0 to 9 and -, at most 32");
    feed.notes = ReadText(options, kNotesOption, "", IsAbsoluteFeedAddress,
                          "an address that begins with https://");
    feed.address = Address(setup, options);
    const std::optional<std::wstring> share = OptionalValue(options, kShareOption);
    feed.share = share ? ReadNumber(kShareOption, *share, {0, 100}) : 100;
    const std::optional<std::wstring> published = OptionalValue(options, kPublishedOption);
    feed.published = published ? ReadTime(kPublishedOption, *published) : now;
    feed.expires = ReadExpiry(options, feed.published, now);
    feed.issue = ReadIssue(options, feed.channel);

    [[maybe_unused]] const ProgressLine progress("Reading the setup program");
    feed.version = ReadVersionNumber(WideToUtf8(VersionOf(application))).value();
    feed.lowestVersion = ReadLowestVersion(options, feed.version);
    const FileFacts facts = FactsOf(setup);
    feed.size = facts.size;
    feed.sha256 = facts.sha256;
    return feed;
}

}  // namespace updater
