#include "client/feed.h"

#include <gtest/gtest.h>

#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "client/client_failures.h"
#include "client/envelope.h"
#include "client/feed/feed_vectors.h"
#include "fuzz/oracle/feed_rules.h"

namespace updater {
namespace {

Feed SampleFeed() {
    return ReadFeed(kPayload);
}

// The sample with one value replaced by what stands in the text, which is JSON.
std::string PayloadWith(const std::string& name, const std::string& value) {
    nlohmann::ordered_json payload = nlohmann::ordered_json::parse(kPayload);
    payload[name] = "the value";
    std::string text = payload.dump();
    return text.replace(text.find("\"the value\""), 11, value);
}

std::string Quoted(const std::string& text) {
    return '"' + text + '"';
}

void ExpectRefusal(const std::string& payload, const std::string& problem) {
    EXPECT_THAT(
        [&] { ReadFeed(payload); },
        RaisesResult(APP_UPDATE_FEED_MALFORMED, "The feed's content is malformed: " + problem))
        << payload;
    EXPECT_FALSE(FeedByTheRules(payload)) << payload;
}

void ExpectAllowed(const std::string& name, const std::string& value) {
    const std::string payload = PayloadWith(name, value);
    EXPECT_NO_THROW(EXPECT_EQ(ReadFeed(payload), FeedByTheRules(payload))) << payload;
}

void ExpectNotAllowed(const std::string& name, const std::string& value) {
    ExpectRefusal(PayloadWith(name, value), Quoted(name) + " has a value that is not allowed");
}

TEST(ReadFeed, TakesEveryValue) {
    const Feed feed = SampleFeed();
    EXPECT_EQ(VersionText(feed.version), "2.0.0.0");
    EXPECT_EQ(feed.size, 73400320U);
    EXPECT_EQ(feed.sha256, "8fb6d5f37e8055ce720bd0b1d56587f88c0071f285966ba17e72b2b12672aa73");
    EXPECT_EQ(feed.address, "setup-2.0.0.0.exe");
    EXPECT_EQ(feed.issue, 7U);
    // date -d 2026-11-22T18:31:00Z +%s
    EXPECT_EQ(feed.published, 1795372260);
    EXPECT_EQ(feed.expires, 1803148260);
    EXPECT_EQ(feed.channel, "stable");
    EXPECT_EQ(VersionText(feed.lowestVersion), "1.0.0.0");
    EXPECT_EQ(feed.share, 25U);
    EXPECT_EQ(feed.notes, "https://updates.example.com/notes/2.0.0.0");
    EXPECT_EQ(FeedByTheRules(kPayload), feed);
}

TEST(ReadFeed, NeedsEveryValueButThree) {
    const auto whole = nlohmann::json::parse(kPayload);
    for (const char* name :
         {"version", "size", "sha256", "address", "issue", "published", "expires", "channel"}) {
        nlohmann::json payload = whole;
        payload.erase(name);
        ExpectRefusal(payload.dump(), Quoted(name) + " is missing");
    }
    nlohmann::json payload = whole;
    for (const char* name : {"lowestVersion", "share", "notes"}) {
        payload.erase(name);
    }
    const Feed feed = ReadFeed(payload.dump());
    EXPECT_EQ(feed.lowestVersion, VersionNumber());
    EXPECT_EQ(feed.share, 100U);
    EXPECT_EQ(feed.notes, "");
}

TEST(ReadFeed, PassesOverWhatItDoesNotKnow) {
    for (const char* value : {"null", "[1,{\"size\":2}]", "{\"a\":-1.5}", "\"x\""}) {
        EXPECT_EQ(ReadFeed(PayloadWith("unknown", value)), SampleFeed());
    }
    EXPECT_EQ(ReadFeed(PayloadWith("Size", "0")), SampleFeed());
}

TEST(ReadFeed, RefusesAValueOfAnotherKind) {
    const auto whole = nlohmann::json::parse(kPayload);
    for (const auto& [name, value] : whole.items()) {
        const std::string swapped = value.is_number() ? Quoted(value.dump()) : "1";
        for (const std::string& other : {swapped, std::string("null"), std::string("true"),
                                         std::string("[]"), std::string("{}"), std::string("-1"),
                                         std::string("1.0"), std::string("1e0"), Quoted("")}) {
            ExpectNotAllowed(name, other);
        }
    }
}

TEST(ReadFeed, RefusesWhatStandsTwice) {
    for (const char* name : {"version", "size", "notes", "unknown"}) {
        const std::string payload = PayloadWith("unknown", "1");
        ExpectRefusal("{" + Quoted(name) + ":1," + payload.substr(1),
                      Quoted(name) + " stands twice");
    }
}

TEST(ReadFeed, RefusesWhatIsNoObject) {
    ExpectRefusal("", "it is not JSON");
    ExpectRefusal("[" + std::string(kPayload) + "]", "it is not a JSON object");
    ExpectRefusal(std::string(kPayload.substr(0, kPayload.size() - 1)), "it is not JSON");
    ExpectRefusal(std::string(kPayload) + '\0', "it is not JSON");
    ExpectRefusal(PayloadWith("unknown", "\"\xFF\""), "it is not JSON");
}

TEST(ReadFeed, HasALimitOfAMebibyte) {
    const std::string largest =
        std::string(kPayload) + std::string(kLargestEnvelope - kPayload.size(), '\n');
    EXPECT_EQ(ReadFeed(largest), SampleFeed());
    ExpectRefusal(largest + '\n', "it has more than 1048576 bytes");
}

TEST(ReadFeed, KnowsTheLimitsOfNumbers) {
    ExpectAllowed("size", "1");
    ExpectAllowed("size", "8589934592");
    ExpectAllowed("issue", "1");
    ExpectAllowed("issue", "4294967295");
    ExpectAllowed("share", "0");
    ExpectAllowed("share", "100");
    for (const char* value : {"0", "8589934593", "18446744073709551615", "18446744073709551616"}) {
        ExpectNotAllowed("size", value);
    }
    ExpectNotAllowed("issue", "0");
    ExpectNotAllowed("issue", "4294967296");
    ExpectNotAllowed("share", "101");
    ExpectNotAllowed("share", "4294967396");
}

TEST(ReadFeed, KnowsTheFormOfTexts) {
    for (const char* name : {"version", "lowestVersion"}) {
        ExpectAllowed(name, Quoted("65535.0.0.1"));
        for (const char* value : {"1.2.3", "1.2.3.65536", "1.2.3.04", "1.2.3.4 ", "1.2.3.4.5"}) {
            ExpectNotAllowed(name, Quoted(value));
        }
    }
    const std::string digest(64, 'f');
    ExpectAllowed("sha256", Quoted(digest));
    for (const std::string& value :
         {digest.substr(1), digest + "f", digest.substr(1) + "F", digest.substr(1) + "g",
          digest.substr(1) + " ", digest.substr(1) + "\\u0000", digest.substr(1) + "`"}) {
        ExpectNotAllowed("sha256", Quoted(value));
    }
    for (const std::string& value : {std::string("a"), std::string("-"), std::string("beta-2"),
                                     std::string(32, 'z'), std::string("09")}) {
        ExpectAllowed("channel", Quoted(value));
    }
    for (const std::string& value :
         {std::string(), std::string("Beta"), std::string("a b"), std::string("a_b"),
          std::string("a\\n"), std::string("\xC3\xA9"), std::string("a{"), std::string(33, 'z')}) {
        ExpectNotAllowed("channel", Quoted(value));
    }
}

const std::string kHost = "https://updates.example.com";

TEST(ReadFeed, TakesAnAddressThatIsRelativeOrHttps) {
    for (const std::string& value :
         {std::string("setup.exe"), std::string("/files/setup.exe"), std::string("../setup.exe"),
          std::string("?file=setup"), std::string("//cdn.example.com/setup.exe"), std::string("#"),
          std::string("a/b:c"), std::string("?x=http://a"), std::string("%E5%AE%89.exe"),
          std::string("1a:b"), kHost, kHost + "/setup.exe", std::string("HTTPS://a"),
          std::string("https://[::1]:8443/setup.exe"), std::string(2048, 'a'),
          kHost + "/" + std::string(2048 - kHost.size() - 1, '~')}) {
        ExpectAllowed("address", Quoted(value));
    }
}

TEST(ReadFeed, RefusesEveryOtherAddress) {
    for (const std::string& value : {std::string(),
                                     std::string("http://a/setup.exe"),
                                     std::string("file:///C:/setup.exe"),
                                     std::string("C:/setup.exe"),
                                     std::string("c:setup.exe"),
                                     std::string("https:setup.exe"),
                                     std::string("https:/setup.exe"),
                                     std::string("https://"),
                                     std::string("https:///a"),
                                     std::string("https://:443/a"),
                                     std::string("https://?a"),
                                     std::string("https://#"),
                                     std::string("https://user@a/b"),
                                     std::string("//user@a/b"),
                                     std::string("//"),
                                     std::string("///a"),
                                     std::string("httpsx://a"),
                                     std::string("ftp+https://a"),
                                     std::string(" setup.exe"),
                                     std::string("set up.exe"),
                                     std::string("setup.exe\\n"),
                                     std::string("\\thttp://a"),
                                     std::string("a\\\\b"),
                                     std::string("\\\\\\\\server\\\\a"),
                                     std::string("a\\u007f"),
                                     std::string("\xE5\xAE\x89.exe"),
                                     std::string("a\\\"b"),
                                     std::string("a<b"),
                                     std::string("a>b"),
                                     std::string("a^b"),
                                     std::string("a`b"),
                                     std::string("{a}"),
                                     std::string("a|b"),
                                     std::string(2049, 'a')}) {
        ExpectNotAllowed("address", Quoted(value));
    }
}

TEST(ReadFeed, TakesNotesThatAreHttps) {
    ExpectAllowed("notes", Quoted(kHost + "/" + std::string(2048 - kHost.size() - 1, 'n')));
    for (const std::string& value :
         {std::string(), std::string("notes.html"), std::string("/notes"), std::string("//a/notes"),
          std::string("http://a/notes"), std::string("javascript:alert(1)"),
          std::string("https://a/b c"), std::string("https://a@b/"), std::string("https://"),
          kHost + "/" + std::string(2048 - kHost.size(), 'n')}) {
        ExpectNotAllowed("notes", Quoted(value));
    }
}

struct Moment {
    const char* text;
    UnixTime time;
};

// From "date --date=TEXT +%s".
constexpr Moment kMoments[] = {
    {"1970-01-01T00:00:00Z", 0},
    {"1969-12-31T23:59:59Z", -1},
    {"2000-02-29T12:00:00Z", 951825600},
    {"2024-02-29T23:59:59Z", 1709251199},
    {"2026-11-22T18:31:00Z", 1795372260},
    {"2038-01-19T03:14:08Z", 2147483648},
    {"9999-12-31T23:59:59Z", 253402300799},
    {"0000-01-01T00:00:00Z", -62167219200},
};

TEST(FeedTimes, AreThoseOfTheCalendar) {
    for (const auto& [text, time] : kMoments) {
        EXPECT_EQ(ReadFeedTime(text, "published"), time) << text;
        EXPECT_EQ(FeedTimeText(time), text);
        ExpectAllowed("expires", Quoted(text));
    }
}

TEST(FeedTimes, GoThroughTheirTextUnchanged) {
    // A step without a common divisor with days, hours or minutes.
    constexpr UnixTime kStep = 7'777'777;
    for (UnixTime time = -62167219200; time <= 253402300799; time += kStep) {
        ASSERT_EQ(ReadTime(FeedTimeText(time)), time);
    }
}

TEST(FeedTimes, HaveOneForm) {
    for (const char* text : {"",
                             "2026-11-22",
                             "2026-11-22T18:31:00",
                             "2026-11-22T18:31:00z",
                             "2026-11-22t18:31:00Z",
                             "2026-11-22 18:31:00Z",
                             "2026-11-22T18:31:00+00:00",
                             "2026-11-22T18:31:00.0Z",
                             "2026-11-22T18:31Z",
                             "26-11-22T18:31:00Z",
                             "+2026-11-22T18:31:00Z",
                             "2026-1-22T18:31:00Z",
                             "12026-11-22T18:31:00Z",
                             " 2026-11-22T18:31:00Z",
                             "2026-11-22T18:31:00Z ",
                             "2026/11/22T18:31:00Z",
                             "2026-11-22T1a:31:00Z",
                             "2026-11-22T-1:31:00Z",
                             "2026-00-22T18:31:00Z",
                             "2026-13-22T18:31:00Z",
                             "2026-11-00T18:31:00Z",
                             "2026-11-31T18:31:00Z",
                             "2026-02-29T18:31:00Z",
                             "1900-02-29T18:31:00Z",
                             "2024-02-30T18:31:00Z",
                             "2026-01-32T18:31:00Z",
                             "2026-11-22T24:00:00Z",
                             "2026-11-22T18:60:00Z",
                             "2026-11-22T18:31:60Z"}) {
        ExpectNotAllowed("published", Quoted(text));
        EXPECT_THAT([&] { ReadFeedTime(text, "expires"); },
                    RaisesResult(APP_UPDATE_FEED_MALFORMED,
                                 "The feed's content is malformed: "
                                 "\"expires\" has a value that is not allowed"));
    }
}

TEST(FeedTimes, AreNoneOutsideTheYearsOfFourDigits) {
    for (const UnixTime time :
         {UnixTime{253402300800}, UnixTime{-62167219201}, std::numeric_limits<UnixTime>::max(),
          std::numeric_limits<UnixTime>::min()}) {
        EXPECT_EQ(FeedTimeText(time), "");
    }
}

TEST(WriteFeed, WritesTheOneForm) {
    EXPECT_EQ(WriteFeed(SampleFeed()), kPayload);
    Feed feed = SampleFeed();
    feed.lowestVersion = {};
    feed.share = 100;
    feed.notes.clear();
    EXPECT_EQ(WriteFeed(feed), std::string(kPayload.substr(0, kPayload.find(",\"lowest"))) + "}");
    EXPECT_EQ(ReadFeed(WriteFeed(feed)), feed);
}

TEST(WriteFeed, RefusesWhatWouldNotBeRead) {
    const struct {
        const char* name;
        void (*damage)(Feed& feed);
    } cases[] = {
        {"size", [](Feed& feed) { feed.size = 0; }},
        {"size", [](Feed& feed) { feed.size = 8589934593; }},
        {"sha256", [](Feed& feed) { feed.sha256 += '0'; }},
        {"address", [](Feed& feed) { feed.address = "http://a/b"; }},
        {"issue", [](Feed& feed) { feed.issue = 0; }},
        {"published", [](Feed& feed) { feed.published = 253402300800; }},
        {"expires", [](Feed& feed) { feed.expires = std::numeric_limits<UnixTime>::max(); }},
        {"channel", [](Feed& feed) { feed.channel = "\"},\"x\":{\""; }},
        {"share", [](Feed& feed) { feed.share = 101; }},
        {"notes", [](Feed& feed) { feed.notes = "notes"; }},
    };
    for (const auto& [name, damage] : cases) {
        Feed feed = SampleFeed();
        damage(feed);
        EXPECT_THAT([&feed = feed] { WriteFeed(feed); },
                    RaisesResult(APP_UPDATE_FEED_MALFORMED,
                                 Quoted(name) + " has a value that is not allowed"));
    }
    Feed feed = SampleFeed();
    feed.address = "\xFF";
    EXPECT_THAT([&] { WriteFeed(feed); }, RaisesResult(APP_UPDATE_FEED_MALFORMED));
}

}  // namespace
}  // namespace updater
