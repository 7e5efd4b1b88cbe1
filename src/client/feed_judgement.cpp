#include "client/feed_judgement.h"

#include "client/failure.h"
#include "client/text_digest.h"
#include "support/windows_api.h"

namespace updater {

namespace {

[[noreturn]] void RaiseRefusal(AppUpdateResult result, const std::string& sentence) {
    throw ClientFailure(result, sentence);
}

}  // namespace

void RequireCredible(const Feed& feed, const FeedCircumstances& circumstances) {
    if (feed.channel != circumstances.channel) {
        RaiseRefusal(APP_UPDATE_WRONG_CHANNEL, "The feed is for the channel \"" + feed.channel +
                                                   "\", not for \"" + circumstances.channel + '"');
    }
    // From this second on.
    if (circumstances.now >= feed.expires) {
        RaiseRefusal(APP_UPDATE_FEED_EXPIRED,
                     "The feed has expired: it was good until " + FeedTimeText(feed.expires) +
                         ", and the time is " + FeedTimeText(circumstances.now));
    }
    if (feed.issue < circumstances.seenIssue) {
        RaiseRefusal(APP_UPDATE_FEED_OLDER,
                     "The feed is older than one seen before: its issue is " +
                         std::to_string(feed.issue) + ", the other's was " +
                         std::to_string(circumstances.seenIssue));
    }
}

AppUpdateResult JudgeOffer(const Feed& feed, const FeedCircumstances& circumstances) {
    const VersionNumber& running = circumstances.runningVersion;
    const bool isOlder = feed.version < running && !circumstances.downgradeAllowed;
    if (feed.version == running || isOlder) {
        return APP_UPDATE_NOTHING_NEW;
    }
    if (running < feed.lowestVersion) {
        RaiseRefusal(APP_UPDATE_TOO_OLD_TO_UPDATE,
                     "The version " + VersionText(running) + " may not update directly to " +
                         VersionText(feed.version) + ", " + VersionText(feed.lowestVersion) +
                         " and later ones may");
    }
    return ShareNumber(circumstances.installation, feed.version) < feed.share ? APP_UPDATE_OK
                                                                              : APP_UPDATE_NOT_YET;
}

std::uint32_t ShareNumber(const std::string& installation, const VersionNumber& version) {
    constexpr std::size_t kNumberBytes = 4;
    const Sha256Digest digest = DigestOfText(installation + VersionText(version));
    std::uint32_t number = 0;
    for (std::size_t index = 0; index < kNumberBytes; ++index) {
        number = number << 8U | digest[index];
    }
    return number % 100;
}

UnixTime CurrentTime() {
    // Windows counts tenths of microseconds since the beginning of 1601.
    constexpr std::uint64_t kUnitsInSecond = 10'000'000;
    constexpr UnixTime kSecondsFrom1601To1970 = 11'644'473'600;
    FILETIME time{};
    GetSystemTimeAsFileTime(&time);
    const std::uint64_t units = std::uint64_t{time.dwHighDateTime} << 32U | time.dwLowDateTime;
    return static_cast<UnixTime>(units / kUnitsInSecond) - kSecondsFrom1601To1970;
}

}  // namespace updater
