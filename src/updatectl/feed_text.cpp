#include "updatectl/feed_text.h"

#include <cstddef>
#include <string_view>
#include <utility>

#include "support/json_text.h"
#include "support/text_conversion.h"
#include "updatectl/output.h"

namespace updater {

bool HasExpired(const Feed& feed, UnixTime now) {
    return feed.expires <= now;
}

std::string FeedText(const Feed& feed, UnixTime now) {
    constexpr std::size_t kColumn = 15;
    std::string text;
    for (const auto& [name, value] :
         {std::pair<std::string_view, std::string>("version", VersionText(feed.version)),
          {"size", std::to_string(feed.size)},
          {"sha256", feed.sha256},
          {"address", feed.address},
          {"issue", std::to_string(feed.issue)},
          {"published", FeedTimeText(feed.published)},
          {"expires", FeedTimeText(feed.expires) + (HasExpired(feed, now) ? ", has expired" : "")},
          {"channel", feed.channel},
          {"lowestVersion", VersionText(feed.lowestVersion)},
          {"share", std::to_string(feed.share)},
          {"notes", feed.notes}}) {
        text.append(name).append(kColumn - name.size(), ' ');
        text.append(PrintableText(Utf8ToWide(value))).append("\n");
    }
    return text;
}

std::string FeedJson(const Feed& feed, UnixTime now) {
    return JsonObject({{"version", JsonString(VersionText(feed.version))},
                       {"size", std::to_string(feed.size)},
                       {"sha256", JsonString(feed.sha256)},
                       {"address", JsonString(feed.address)},
                       {"issue", std::to_string(feed.issue)},
                       {"published", JsonString(FeedTimeText(feed.published))},
                       {"expires", JsonString(FeedTimeText(feed.expires))},
                       {"expired", HasExpired(feed, now) ? "true" : "false"},
                       {"channel", JsonString(feed.channel)},
                       {"lowestVersion", JsonString(VersionText(feed.lowestVersion))},
                       {"share", std::to_string(feed.share)},
                       {"notes", JsonString(feed.notes)}}) +
           "\n";
}

}  // namespace updater
