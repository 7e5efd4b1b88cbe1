#include "updatectl/feed_text.h"

#include <gmock/gmock.h>

namespace updater {
namespace {

using testing::HasSubstr;

TEST(FeedText, SaysFromItsLastSecondOnThatTheFeedHasExpired) {
    Feed feed;
    feed.expires = 86400;
    EXPECT_FALSE(HasExpired(feed, 86399));
    EXPECT_THAT(FeedText(feed, 86399), HasSubstr("expires        1970-01-02T00:00:00Z\n"));
    EXPECT_THAT(FeedJson(feed, 86399), HasSubstr("\"expired\":false"));
    for (const UnixTime now : {86400, 86401}) {
        EXPECT_TRUE(HasExpired(feed, now));
        EXPECT_THAT(FeedText(feed, now),
                    HasSubstr("expires        1970-01-02T00:00:00Z, has expired\n"));
        EXPECT_THAT(FeedJson(feed, now), HasSubstr("\"expired\":true"));
    }
}

}  // namespace
}  // namespace updater
