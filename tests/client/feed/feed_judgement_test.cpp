#include "client/feed_judgement.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <string>
#include <vector>

#include "client/client_failures.h"
#include "client/feed/feed_vectors.h"

namespace updater {
namespace {

VersionNumber Version(const char* text) {
    return ReadVersionNumber(text).value();
}

// The sample, which is for a quarter of all machines, is offered to the application.
struct FeedJudgement : testing::Test {
    void ExpectNotCredible(AppUpdateResult result, const std::string& sentence) const {
        EXPECT_THAT([this] { RequireCredible(feed, circumstances); },
                    testing::AllOf(RaisesResult(result), testing::ThrowsMessage<ClientFailure>(
                                                             testing::StrEq(sentence))));
    }

    Feed feed = ReadFeed(kPayload);
    FeedCircumstances circumstances = {.runningVersion = Version("1.5.0.0"),
                                       .channel = "stable",
                                       .now = feed.published,
                                       .seenIssue = feed.issue,
                                       .installation = "{6E2D1C4A-0000-4000-8000-00000000003E}"};
};

TEST_F(FeedJudgement, AFeedOfTheChannelIsCredible) {
    EXPECT_NO_THROW(RequireCredible(feed, circumstances));
}

TEST_F(FeedJudgement, AnotherChannelsIsNot) {
    circumstances.channel = "beta";
    ExpectNotCredible(APP_UPDATE_WRONG_CHANNEL,
                      "The feed is for the channel \"stable\", not for \"beta\"");
    circumstances.channel = "Stable";
    EXPECT_THAT([this] { RequireCredible(feed, circumstances); },
                RaisesResult(APP_UPDATE_WRONG_CHANNEL));
}

TEST_F(FeedJudgement, AFeedExpiresOnTheSecond) {
    circumstances.now = feed.expires - 1;
    EXPECT_NO_THROW(RequireCredible(feed, circumstances));
    circumstances.now = feed.expires;
    ExpectNotCredible(
        APP_UPDATE_FEED_EXPIRED,
        "The feed has expired: it was good until 2027-02-20T18:31:00Z, and the time is "
        "2027-02-20T18:31:00Z");
    circumstances.now = feed.expires + 1;
    EXPECT_THAT([this] { RequireCredible(feed, circumstances); },
                RaisesResult(APP_UPDATE_FEED_EXPIRED));
}

TEST_F(FeedJudgement, AnIssueMayBeSeenAgainButNoLowerOne) {
    circumstances.seenIssue = feed.issue - 1;
    EXPECT_NO_THROW(RequireCredible(feed, circumstances));
    circumstances.seenIssue = 0;
    EXPECT_NO_THROW(RequireCredible(feed, circumstances));
    circumstances.seenIssue = feed.issue + 1;
    ExpectNotCredible(APP_UPDATE_FEED_OLDER,
                      "The feed is older than one seen before: its issue is 7, the other's was 8");
}

TEST_F(FeedJudgement, TheChannelIsToldFirstThenTheExpiry) {
    circumstances.seenIssue = feed.issue + 1;
    circumstances.now = feed.expires;
    EXPECT_THAT([this] { RequireCredible(feed, circumstances); },
                RaisesResult(APP_UPDATE_FEED_EXPIRED));
    circumstances.channel = "beta";
    EXPECT_THAT([this] { RequireCredible(feed, circumstances); },
                RaisesResult(APP_UPDATE_WRONG_CHANNEL));
}

TEST_F(FeedJudgement, OnlyANewerVersionIsAnOffer) {
    feed.share = 100;
    EXPECT_EQ(JudgeOffer(feed, circumstances), APP_UPDATE_OK);
    for (const char* running : {"2.0.0.0", "2.0.0.1", "10.0.0.0"}) {
        circumstances.runningVersion = Version(running);
        EXPECT_EQ(JudgeOffer(feed, circumstances), APP_UPDATE_NOTHING_NEW) << running;
    }
}

TEST_F(FeedJudgement, AnOlderVersionIsAnOfferWhereDowngradesAreAllowed) {
    feed.share = 100;
    circumstances.downgradeAllowed = true;
    for (const char* running : {"1.5.0.0", "2.0.0.1", "10.0.0.0"}) {
        circumstances.runningVersion = Version(running);
        EXPECT_EQ(JudgeOffer(feed, circumstances), APP_UPDATE_OK) << running;
    }
    circumstances.runningVersion = feed.version;
    EXPECT_EQ(JudgeOffer(feed, circumstances), APP_UPDATE_NOTHING_NEW);
}

TEST_F(FeedJudgement, AVersionBelowTheLowestMayNotUpdate) {
    feed.share = 100;
    circumstances.runningVersion = Version("1.0.0.0");
    EXPECT_EQ(JudgeOffer(feed, circumstances), APP_UPDATE_OK);
    circumstances.runningVersion = Version("0.9.9.9");
    const auto judge = [this] { JudgeOffer(feed, circumstances); };
    EXPECT_THAT(judge, RaisesResult(APP_UPDATE_TOO_OLD_TO_UPDATE,
                                    "The version 0.9.9.9 may not update directly to 2.0.0.0, "
                                    "1.0.0.0 and later ones may"));
    // Before the share, behind what is nothing new.
    feed.share = 0;
    EXPECT_THAT(judge, RaisesResult(APP_UPDATE_TOO_OLD_TO_UPDATE));
    feed.version = circumstances.runningVersion;
    EXPECT_EQ(JudgeOffer(feed, circumstances), APP_UPDATE_NOTHING_NEW);
}

TEST_F(FeedJudgement, TheShareDecidesLast) {
    const std::uint32_t number = ShareNumber(circumstances.installation, feed.version);
    ASSERT_LT(number, 100U);
    feed.share = number;
    EXPECT_EQ(JudgeOffer(feed, circumstances), APP_UPDATE_NOT_YET);
    feed.share = number + 1;
    EXPECT_EQ(JudgeOffer(feed, circumstances), APP_UPDATE_OK);
    feed.share = 0;
    circumstances.runningVersion = feed.version;
    EXPECT_EQ(JudgeOffer(feed, circumstances), APP_UPDATE_NOTHING_NEW);
}

// printf '{6E2D1C4A-0000-4000-8000-00000000003E}2.0.0.0' | sha256sum | cut -c 1-8
// python3 -c 'print(0xDIGITS % 100)'
TEST_F(FeedJudgement, TheNumberNeverChanges) {
    EXPECT_EQ(ShareNumber(circumstances.installation, feed.version), 24U);
}

std::vector<std::string> ManyInstallations() {
    std::vector<std::string> installations;
    for (int number = 10000; number < 14000; ++number) {
        installations.push_back("{00000000-0000-4000-8000-0000000" + std::to_string(number) + "}");
    }
    return installations;
}

TEST_F(FeedJudgement, AShareThatGrowsKeepsWhoHadItUntilAllHaveIt) {
    for (const std::string& installation : ManyInstallations()) {
        circumstances.installation = installation;
        bool hadIt = false;
        for (feed.share = 0; feed.share <= 100; ++feed.share) {
            const bool hasIt = JudgeOffer(feed, circumstances) == APP_UPDATE_OK;
            ASSERT_TRUE(hasIt || !hadIt);
            ASSERT_TRUE(feed.share != 0 || !hasIt) << "nobody has a share of nothing";
            hadIt = hasIt;
        }
        ASSERT_TRUE(hadIt) << "everybody has the whole";
    }
}

TEST_F(FeedJudgement, AShareIsThatOfManyMachines) {
    std::array<int, 100> counts{};
    for (const std::string& installation : ManyInstallations()) {
        ++counts.at(ShareNumber(installation, feed.version));
    }
    // Forty are expected of each number; six standard deviations more or less.
    EXPECT_GT(*std::ranges::min_element(counts), 2);
    EXPECT_LT(*std::ranges::max_element(counts), 78);
}

TEST_F(FeedJudgement, TheFirstMachinesAreOthersForEachVersion) {
    int moved = 0;
    for (const std::string& installation : ManyInstallations()) {
        moved += ShareNumber(installation, Version("2.0.0.0")) !=
                         ShareNumber(installation, Version("2.0.0.1"))
                     ? 1
                     : 0;
    }
    EXPECT_GT(moved, 3800);
}

TEST(CurrentTime, IsThatOfTheStandardLibrary) {
    const std::time_t before = std::time(nullptr);
    const UnixTime now = CurrentTime();
    // The library may count the seconds by a coarser clock.
    EXPECT_GE(now, before - 1);
    EXPECT_LE(now, std::time(nullptr) + 1);
}

}  // namespace
}  // namespace updater
