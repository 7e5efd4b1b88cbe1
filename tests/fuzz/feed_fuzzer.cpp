// The input is a feed's payload.

#include <optional>
#include <string>

#include "client/failure.h"
#include "client/feed.h"
#include "fuzz/fuzz_input.h"
#include "fuzz/oracle/feed_rules.h"
#include "fuzz/oracle/report_sentence.h"
#include "fuzz/property.h"

namespace updater {
namespace {

std::optional<Feed> FeedOfInput(std::string_view input) {
    try {
        return ReadFeed(input);
    } catch (const ClientFailure& failure) {
        Require(failure.result == APP_UPDATE_FEED_MALFORMED, "a payload is malformed or a feed");
        Require(IsReportSentence(failure.what()), "a report is one plain line");
        return std::nullopt;
    }
}

}  // namespace
}  // namespace updater

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input = updater::TextOfInput(data, size);
    const std::optional<updater::Feed> feed = updater::FeedOfInput(input);
    updater::Require(feed == updater::FeedByTheRules(input), "a payload is read by the rules");
    if (feed) {
        const std::string written = updater::WriteFeed(*feed);
        updater::Require(updater::ReadFeed(written) == feed, "what is written is read");
    }
    return 0;
}
