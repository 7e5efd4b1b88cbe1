#include <filesystem>
#include <vector>

#include "client/feed_judgement.h"
#include "updatectl/command_options.h"
#include "updatectl/feed_text.h"
#include "updatectl/output.h"
#include "updatectl/signed_feed.h"
#include "updatectl/tool.h"

namespace updater {

namespace {

constexpr char kHelp[] =
    R"(Usage: <tool> feed FILE --key PUBLIC... [--json]

Verifies the update feed in FILE as an application does, and shows what it says.

  --key PUBLIC   a public key whose signature counts, in PEM form; may be repeated
  --json         print the feed as JSON: its entries, and "expired"

The exit code is 0 only if the feed has a good signature by one of the keys and has not expired.
)";

constexpr std::string_view kOperands[] = {"FILE"};

int RunFeed(std::span<const std::wstring> tokens) {
    const CommandOptions options = ReadCommandOptions(tokens, {kJsonFlag}, {kKeyOption});
    RequireOperands(options, kOperands);
    const std::vector<PublicKey> keys = ReadKeys(options);
    const Feed feed = ReadSignedFeed(options.operands.front(), keys);
    const UnixTime now = CurrentTime();
    PrintOutput(options.values.contains(kJsonFlag) ? FeedJson(feed, now) : FeedText(feed, now));
    return HasExpired(feed, now) ? kToolFailed : kToolDone;
}

}  // namespace

const ToolCommand kFeedCommand = {L"feed", kHelp, RunFeed};

}  // namespace updater
