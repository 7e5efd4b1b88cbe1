#include <atomic>
#include <thread>

#include "client/envelope.h"
#include "client/feed_store.h"
#include "client/session/session_scene.h"
#include "fixtures/file_content.h"
#include "support/file_system.h"
#include "support/text_conversion.h"

namespace updater {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

using UpdateCheck = SessionScene;

TEST_F(UpdateCheck, OffersWhatTheFeedSays) {
    Publish(feed);
    Open();
    ASSERT_EQ(Check(), APP_UPDATE_OK) << Sentence();
    EXPECT_EQ(Sentence(), "The feed's issue 7 offers version 2.0.0.0");
    EXPECT_EQ(report.result, APP_UPDATE_OK);
    EXPECT_STREQ(offer.version, L"2.0.0.0");
    EXPECT_STREQ(offer.notes, L"https://example.com/notes");
    EXPECT_EQ(offer.issue, 7U);
    EXPECT_EQ(offer.setupSize, setup.size());
}

TEST_F(UpdateCheck, AsksForAnUnchangedFeedByItsTagAndVerifiesTheKeptOneAnew) {
    Publish(feed);
    Open();
    ASSERT_EQ(Check(), APP_UPDATE_OK);
    Open();
    offer.version = nullptr;
    EXPECT_EQ(Check(), APP_UPDATE_OK) << Sentence();
    EXPECT_STREQ(offer.version, L"2.0.0.0");
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_THAT(requests[0].headers, IsEmpty());
    EXPECT_THAT(requests[1].headers, ElementsAre(L"If-None-Match: \"first\""));
    EXPECT_EQ(requests[1].address, settings.feedAddress);
}

TEST_F(UpdateCheck, AsksAnotherAddressWithoutTheTag) {
    Publish(feed);
    Open();
    ASSERT_EQ(Check(), APP_UPDATE_OK);
    settings.feedAddress = L"https://example.com/other.json";
    Open();
    EXPECT_EQ(Check(), APP_UPDATE_OK);
    EXPECT_THAT(requests.back().headers, IsEmpty());
}

TEST_F(UpdateCheck, FetchesAnewWhatNoKeyOfTodayHasSigned) {
    Publish(feed);
    Open();
    ASSERT_EQ(Check(), APP_UPDATE_OK);
    key = SigningKey();
    keys = {key.publicText.c_str()};
    settings.publicKeys = keys.data();
    Publish(feed);
    Open();
    EXPECT_EQ(Check(), APP_UPDATE_OK) << Sentence();
    EXPECT_THAT(requests.back().headers, IsEmpty());
}

TEST_F(UpdateCheck, TakesNoUnchangedFeedThatItHasNotAskedFor) {
    TheServer().fetch = [](const HttpsRequest&, const HttpsReceiver& receiver) {
        HttpsHead head;
        head.status = 304;
        receiver.takeHead(head);
    };
    Open();
    EXPECT_EQ(Check(), APP_UPDATE_SERVER_ERROR);
    EXPECT_EQ(Sentence(),
              "The server answers with status 304 instead of the feed "
              "https://example.com/app/update-feed.json");
}

TEST_F(UpdateCheck, RefusesAnOlderIssueAlsoAfterARestart) {
    Publish(feed);
    Open();
    ASSERT_EQ(Check(), APP_UPDATE_OK);
    Feed older = feed;
    older.issue = 6;
    TheServer().fetch = [envelope = key.Envelope(WriteFeed(older))](const HttpsRequest&,
                                                                    const HttpsReceiver& receiver) {
        Answer200(receiver, "\"second\"", envelope);
    };
    Open();
    EXPECT_EQ(Check(), APP_UPDATE_FEED_OLDER);
    EXPECT_EQ(AppUpdateDownload(session.get(), nullptr, nullptr, &report), APP_UPDATE_WRONG_ORDER);
    EXPECT_EQ(Sentence(), "No check has found an offer");
    // What is refused is not kept either.
    Publish(feed);
    EXPECT_EQ(Check(), APP_UPDATE_OK);
    EXPECT_THAT(requests.back().headers, ElementsAre(L"If-None-Match: \"first\""));
}

TEST_F(UpdateCheck, KeepsTheIssueOfAFeedThatOffersNothing) {
    feed.version = {{1, 0, 0, 0}};
    Publish(feed);
    Open();
    EXPECT_EQ(Check(), APP_UPDATE_NOTHING_NEW);
    EXPECT_EQ(Sentence(), "The feed's issue 7 offers version 1.0.0.0, which is not new");
    EXPECT_THAT(ReadFileContent(dataDirectory / L"update-state.json"), HasSubstr("\"stable\":7"));
    feed.issue = 6;
    feed.version = {{3, 0, 0, 0}};
    TheServer().fetch = [envelope = key.Envelope(WriteFeed(feed))](const HttpsRequest&,
                                                                   const HttpsReceiver& receiver) {
        Answer200(receiver, "", envelope);
    };
    EXPECT_EQ(Check(), APP_UPDATE_FEED_OLDER);
}

TEST_F(UpdateCheck, SaysThatAnOfferIsNotForThisMachineYet) {
    feed.share = 0;
    Publish(feed);
    Open();
    EXPECT_EQ(Check(), APP_UPDATE_NOT_YET);
    EXPECT_EQ(Sentence(),
              "The feed's issue 7 offers version 2.0.0.0, which is not for this machine yet");
}

TEST_F(UpdateCheck, OffersAnOlderVersionOnlyWithTheFlag) {
    settings.runningVersion = L"3.0.0.0";
    Publish(feed);
    Open();
    EXPECT_EQ(Check(), APP_UPDATE_NOTHING_NEW);
    settings.flags = APP_UPDATE_FLAG_ALLOW_DOWNGRADE;
    Open();
    EXPECT_EQ(Check(), APP_UPDATE_OK);
}

TEST_F(UpdateCheck, SaysThatTheStoreWasDamaged) {
    Publish(feed);
    Open();
    ASSERT_EQ(Check(), APP_UPDATE_OK);
    WriteFileContent(dataDirectory / L"update-state.json", "{");
    EXPECT_EQ(Check(), APP_UPDATE_OK);
    EXPECT_THAT(Sentence(), EndsWith("offers version 2.0.0.0; what was kept of earlier checks was "
                                     "damaged and has been made anew"));
    EXPECT_EQ(Check(), APP_UPDATE_OK);
    EXPECT_EQ(Sentence(), "The feed's issue 7 offers version 2.0.0.0");
}

TEST_F(UpdateCheck, RefusesAnOlderIssueThanTheKeptFeedsWhereTheStateIsDamaged) {
    Publish(feed);
    Open();
    ASSERT_EQ(Check(), APP_UPDATE_OK);
    feed.issue = 6;
    Publish(feed);
    for (const char* damaged : {"", "{"}) {
        WriteFileContent(dataDirectory / L"update-state.json", damaged);
        EXPECT_EQ(Check(), APP_UPDATE_FEED_OLDER) << Sentence();
    }
    RemoveFile(dataDirectory / L"update-state.json");
    EXPECT_EQ(Check(), APP_UPDATE_FEED_OLDER) << Sentence();
    EXPECT_THAT(requests.back().headers, IsEmpty());
    feed.issue = 7;
    Publish(feed);
    EXPECT_EQ(Check(), APP_UPDATE_OK);
}

TEST_F(UpdateCheck, TakesNoIssueFromAKeptFeedOfSomebodyElse) {
    Publish(feed);
    Open();
    Feed later = feed;
    later.issue = 8;
    Feed otherChannel = later;
    otherChannel.channel = "beta";
    for (const std::string& kept :
         {SigningKey().Envelope(WriteFeed(later)), key.Envelope(WriteFeed(otherChannel)),
          key.Envelope("{}"), std::string("damaged")}) {
        WriteFileContent(dataDirectory / L"update-state.json", "{");
        WriteFileContent(dataDirectory / L"update-feed.json", kept);
        EXPECT_EQ(Check(), APP_UPDATE_OK) << Sentence();
    }
}

// Another instance of the application checks at the same time.
TEST_F(UpdateCheck, SeesWhatAnotherInstanceHasSeenMeanwhile) {
    Publish(feed);
    Open();
    FeedStore other{.installation = "{01234567-89AB-CDEF-0123-456789ABCDEF}",
                    .issues = {{"beta", 3}, {"stable", 6}},
                    .feedAddress = "https://example.com/other.json",
                    .entityTag = "\"other\"",
                    .envelope = "other"};
    TheServer().fetch = [&, answer = TheServer().fetch](const HttpsRequest& request,
                                                        const HttpsReceiver& receiver) {
        WriteFeedStore(dataDirectory, other);
        answer(request, receiver);
    };
    ASSERT_EQ(Check(), APP_UPDATE_OK) << Sentence();
    FeedStore store = ReadFeedStore(dataDirectory);
    EXPECT_EQ(store.installation, other.installation);
    EXPECT_THAT(store.issues, ElementsAre(testing::Pair("beta", 3), testing::Pair("stable", 7)));
    EXPECT_EQ(store.entityTag, "\"first\"");
    other.issues["stable"] = 8;
    EXPECT_EQ(Check(), APP_UPDATE_FEED_OLDER);
    store = ReadFeedStore(dataDirectory);
    EXPECT_EQ(store.issues["stable"], 8U);
    EXPECT_EQ(store.envelope, "other");
}

TEST_F(UpdateCheck, IsMadeByTwoInstancesAtOnce) {
    constexpr std::uint32_t kFeeds = 40;
    std::vector<std::string> envelopes;
    for (feed.issue = 1; feed.issue <= kFeeds; ++feed.issue) {
        envelopes.push_back(key.Envelope(WriteFeed(feed)));
    }
    std::atomic<std::size_t> published = 0;
    TheServer().fetch = [&](const HttpsRequest&, const HttpsReceiver& receiver) {
        Answer200(receiver, "\"tag\"", envelopes[published++]);
    };
    Open();
    const UniqueSession first = std::move(session);
    Open();
    const auto check = [](AppUpdateSession* instance) {
        for (std::uint32_t count = 0; count < kFeeds / 2; ++count) {
            AppUpdateOffer found{};
            found.size = sizeof(found);
            AppUpdateReport said{};
            said.size = sizeof(said);
            const AppUpdateResult result = AppUpdateCheck(instance, &found, &said);
            EXPECT_TRUE(result == APP_UPDATE_OK || result == APP_UPDATE_FEED_OLDER)
                << result << ", error " << said.systemError << ": " << WideToUtf8(said.sentence);
        }
    };
    {
        const std::jthread other(check, first.get());
        check(session.get());
    }
    EXPECT_EQ(published, std::size_t{kFeeds});
}

TEST_F(UpdateCheck, EndsAnAnswerThatIsTooLongAtOnce) {
    Open();
    const std::string body(kLargestEnvelope + 1, ' ');
    std::size_t portions = 0;
    TheServer().fetch = [&](const HttpsRequest&, const HttpsReceiver& receiver) {
        HttpsHead head;
        head.status = 200;
        ASSERT_TRUE(receiver.takeHead(head));
        for (const char& byte : body) {
            ++portions;
            receiver.takeBytes({&byte, 1});
        }
    };
    EXPECT_EQ(Check(), APP_UPDATE_FEED_MALFORMED);
    EXPECT_EQ(Sentence(), "The feed has more than 1 MiB");
    EXPECT_EQ(portions, body.size());
}

TEST_F(UpdateCheck, DoesNotBeginAnAnswerThatIsSaidToBeTooLong) {
    Open();
    TheServer().fetch = [](const HttpsRequest&, const HttpsReceiver& receiver) {
        HttpsHead head;
        head.status = 200;
        head.length = kLargestEnvelope + 1;
        receiver.takeHead(head);
        ADD_FAILURE() << "The head was taken";
    };
    EXPECT_EQ(Check(), APP_UPDATE_FEED_MALFORMED);
}

TEST_F(UpdateCheck, RefusesAFeedByAnUnknownKeyAndKeepsNothing) {
    const std::string foreign = SigningKey().Envelope(WriteFeed(feed));
    TheServer().fetch = [&foreign](const HttpsRequest&, const HttpsReceiver& receiver) {
        Answer200(receiver, "\"first\"", foreign);
    };
    Open();
    EXPECT_EQ(Check(), APP_UPDATE_BAD_SIGNATURE);
    EXPECT_FALSE(PathExists(dataDirectory / L"update-feed.json"));
    EXPECT_FALSE(PathExists(dataDirectory / L"update-state.json"));
}

TEST_F(UpdateCheck, EndsWhereItCannotKeepWhatItHasSeen) {
    Publish(feed);
    Open();
    CreateDirectories(dataDirectory / L"update-state.json" / L"in the way");
    EXPECT_EQ(Check(), APP_UPDATE_FILE_ERROR);
    EXPECT_NE(report.systemError, 0U);
    EXPECT_EQ(AppUpdateDownload(session.get(), nullptr, nullptr, &report), APP_UPDATE_WRONG_ORDER);
}

TEST_F(UpdateCheck, IsCancelledByACallBeforeIt) {
    Publish(feed);
    Open();
    AppUpdateCancel(session.get());
    EXPECT_EQ(Check(), APP_UPDATE_CANCELLED);
    EXPECT_EQ(Check(), APP_UPDATE_OK) << "A cancellation counts once";
}

}  // namespace
}  // namespace updater
