// The first step: what the feed says, and the bytes that are to be signed.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "client/envelope.h"
#include "client/feed.h"
#include "client/feed_judgement.h"
#include "fixtures/file_content.h"
#include "support/file_system.h"
#include "support/text_conversion.h"
#include "updatectl/release_to_publish.h"
#include "updatectl/stored_feeds.h"

namespace updater {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr wchar_t kPayload[] = L"update-feed.payload";
constexpr wchar_t kToBeSigned[] = L"update-feed.tbs";

const std::vector<std::wstring> kEnough = {L"--issue", L"1", L"--days", L"1"};

std::vector<std::wstring> EnoughAnd(const std::vector<std::wstring>& more) {
    std::vector<std::wstring> options = kEnough;
    options.insert(options.end(), more.begin(), more.end());
    return options;
}

struct PublishTest : testing::Test, ReleaseToPublish {
    [[nodiscard]] nlohmann::json Payload() const {
        return nlohmann::json::parse(Content(kPayload));
    }

    void ExpectFailure(const ToolResult& result, const std::string& reason) const {
        EXPECT_EQ(result.exitCode, 1U) << reason;
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(result.error, HasSubstr(reason));
        EXPECT_THAT(Written(), IsEmpty()) << reason;
    }
};

TEST_F(PublishTest, WritesWhatTheFeedSaysAndTheBytesToBeSigned) {
    const ToolResult result = PreparePlain();
    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.output, kShownFeed +
                                 std::string("lowestVersion  0.0.0.0\n"
                                             "share          100\n"
                                             "notes          \n"
                                             "\nTo be signed: ") +
                                 WideToUtf8((directory / kToBeSigned).native()) + "\n");
    EXPECT_EQ(Content(kPayload), PlainFeed().payload);
    EXPECT_EQ(Content(kToBeSigned),
              "DSSEv1 44 application/vnd.application-update-feed+json 232 " + PlainFeed().payload);
    EXPECT_THAT(Written(), ElementsAre(kPayload, kToBeSigned));
}

TEST_F(PublishTest, TakesWhatIsGiven) {
    const ToolResult result =
        Prepare({L"--issue", L"4294967295", L"--published", L"2020-02-29T00:00:00Z", L"--expires",
                 L"2099-01-01T00:00:00Z", L"--channel", L"beta-2", L"--address",
                 L"https://example.com/a%20b.exe?c=d", L"--lowest", L"2.0.0.0", L"--share", L"0",
                 L"--notes", L"https://example.com/notes"});
    EXPECT_EQ(result.exitCode, 0U) << result.error;
    const nlohmann::json payload = Payload();
    EXPECT_EQ(payload.at("issue"), 4294967295);
    EXPECT_EQ(payload.at("published"), "2020-02-29T00:00:00Z");
    EXPECT_EQ(payload.at("expires"), "2099-01-01T00:00:00Z");
    EXPECT_EQ(payload.at("channel"), "beta-2");
    EXPECT_EQ(payload.at("address"), "https://example.com/a%20b.exe?c=d");
    EXPECT_EQ(payload.at("lowestVersion"), "2.0.0.0");
    EXPECT_EQ(payload.at("share"), 0);
    EXPECT_EQ(payload.at("notes"), "https://example.com/notes");
}

TEST_F(PublishTest, IsOfNowUnlessATimeIsGiven) {
    const UnixTime before = CurrentTime();
    ASSERT_EQ(Prepare({L"--issue", L"1", L"--days", L"30"}).exitCode, 0U);
    const UnixTime after = CurrentTime();
    const Feed feed = ReadFeed(Content(kPayload));
    EXPECT_GE(feed.published, before);
    EXPECT_LE(feed.published, after);
    EXPECT_EQ(feed.expires - feed.published, 30 * 24 * 60 * 60);
}

TEST_F(PublishTest, CountsItsDaysFromThePublication) {
    ASSERT_EQ(
        Prepare({L"--issue", L"1", L"--days", L"3660", L"--published", L"2024-02-28T23:59:59Z"})
            .exitCode,
        0U);
    EXPECT_EQ(Payload().at("expires"), "2034-03-07T23:59:59Z");
}

TEST_F(PublishTest, TakesTheSetupProgramsNameForItsAddress) {
    struct Name {
        const wchar_t* name;
        const char* address;
    };
    for (const Name& test : {Name{L"a-b_c.d~1.exe", "a-b_c.d~1.exe"},
                             {L"100% %41.exe", "100%25%20%2541.exe"},
                             {L"\u4E2D\U0001F600.exe", "%E4%B8%AD%F0%9F%98%80.exe"},
                             {L"a#b&c+d;e=f@g,h'i(j)!$[k]^{l}`.exe",
                              "a%23b%26c%2Bd%3Be%3Df%40g%2Ch%27i%28j%29%21%24%5Bk%5D%5E%7Bl%7D%60"
                              ".exe"},
                             {L"caf\u00E9", "caf%C3%A9"}}) {
        const std::wstring odd = Write(test.name, "x");
        const ToolResult result =
            CallTool({L"publish", odd, L"--app", application.native(), L"--issue", L"1", L"--days",
                      L"1", L"--output", directory.native()});
        EXPECT_EQ(result.exitCode, 0U) << result.error;
        EXPECT_EQ(Payload().at("address"), test.address);
    }
}

TEST_F(PublishTest, WritesToTheCurrentDirectoryUnlessToldOtherwise) {
    const std::vector<std::wstring> arguments = {
        L"publish", L"./program 2.exe", L"--app", L".\\" IDENTITY_EXECUTABLE, L"--issue",
        L"1",       L"--days",          L"1"};
    EXPECT_EQ(CallTool(arguments, directory).exitCode, 0U);
    EXPECT_THAT(Written(), ElementsAre(kPayload, kToBeSigned));
    EXPECT_EQ(Payload().at("address"), "program%202.exe");
}

TEST_F(PublishTest, ReplacesWhatAnEarlierOneHasWritten) {
    Write(kPayload, "old");
    Write(kToBeSigned, std::string(100000, 'x'));
    ASSERT_EQ(PreparePlain().exitCode, 0U);
    EXPECT_EQ(Content(kPayload), PlainFeed().payload);
    EXPECT_EQ(Content(kToBeSigned), PreAuthenticationEncoding(PlainFeed().payload));
}

TEST_F(PublishTest, CountsOnFromAnEarlierFeed) {
    const std::wstring earlier = Write(L"earlier.json", PublishedText(PlainFeed()));
    const std::wstring key = (directory / L"key.pub").native();
    const std::wstring other = (directory / L"other.pub").native();
    for (const std::vector<std::wstring>& keys :
         {std::vector<std::wstring>{L"--key", key}, {L"--key", other, L"--key", key}}) {
        std::vector<std::wstring> options = {L"--days", L"1", L"--after", earlier};
        options.insert(options.end(), keys.begin(), keys.end());
        EXPECT_EQ(Prepare(options).exitCode, 0U);
        EXPECT_EQ(Payload().at("issue"), 8);
        RemoveFile(directory / kPayload);
    }
    // It need not be good any more.
    const std::wstring expired = Write(L"expired.json", PublishedText(ExpiredFeed()));
    EXPECT_EQ(Prepare({L"--days", L"1", L"--after", expired, L"--key", key}).exitCode, 0U);
    EXPECT_EQ(Payload().at("issue"), 8);
}

TEST_F(PublishTest, CountsOnFromNoFeedThatItCannotTrust) {
    struct Refusal {
        std::string feed;
        const wchar_t* key;
        const char* reason;
    };
    for (const Refusal& test :
         {Refusal{PublishedText(PlainFeed()), L"other.pub",
                  "earlier.json: The feed has no signature by a known key\n"},
          {PublishedText(BetaFeed()), L"key.pub",
           "earlier.json: it is of the channel beta, not stable\n"},
          {PublishedText(LastFeed()), L"key.pub",
           "earlier.json: there is no higher issue number\n"},
          {PlainFeed().payload, L"key.pub", "earlier.json: The feed is not a signed envelope: "}}) {
        const std::wstring earlier = Write(L"earlier.json", test.feed);
        ExpectFailure(Prepare({L"--days", L"1", L"--after", earlier, L"--key",
                               (directory / test.key).native()}),
                      test.reason);
    }
}

TEST_F(PublishTest, RefusesOptionsThatMakeNoFeed) {
    struct WrongUsage {
        std::vector<std::wstring> options;
        std::string why;
    };
    const std::string longest = "https://example.com/" + std::string(2048 - 20, 'a');
    const std::wstring tooLong = Utf8ToWide(longest + "a");
    const std::vector<WrongUsage> cases = {
        {{L"--days", L"1"}, "--issue or --after is missing"},
        {{L"--issue", L"1"}, "--expires or --days is missing"},
        {{L"--issue", L"1", L"--after", L"x", L"--days", L"1"},
         "--issue and --after exclude each other"},
        {EnoughAnd({L"--expires", L"2099-01-01T00:00:00Z"}),
         "--expires and --days exclude each other"},
        {EnoughAnd({L"--issue", L"2"}), "--issue is repeated"},
        {EnoughAnd({L"--channel", L"a", L"--channel", L"a"}), "--channel is repeated"},
        {{L"--issue", L"0", L"--days", L"1"}, "--issue needs a number from 1 to 4294967295, not 0"},
        {{L"--issue", L"4294967296", L"--days", L"1"},
         "--issue needs a number from 1 to 4294967295, not 4294967296"},
        {{L"--issue", L"+1", L"--days", L"1"},
         "--issue needs a number from 1 to 4294967295, not +1"},
        {{L"--issue", L"1 ", L"--days", L"1"},
         "--issue needs a number from 1 to 4294967295, not 1 "},
        {{L"--issue", L"1", L"--days", L"0"}, "--days needs a number from 1 to 3660, not 0"},
        {{L"--issue", L"1", L"--days", L"3661"}, "--days needs a number from 1 to 3660, not 3661"},
        {{L"--issue", L"1", L"--expires", L"2099-01-01"},
         "--expires needs a time such as 2027-01-31T12:00:00Z, not 2099-01-01"},
        {{L"--issue", L"1", L"--expires", L"2099-02-29T00:00:00Z"},
         "--expires needs a time such as 2027-01-31T12:00:00Z, not 2099-02-29T00:00:00Z"},
        {EnoughAnd({L"--published", L"now"}),
         "--published needs a time such as 2027-01-31T12:00:00Z, not now"},
        {{L"--issue", L"1", L"--expires", L"2020-01-01T00:00:00Z", L"--published",
          L"2019-01-01T00:00:00Z"},
         "The feed would expire at 2020-01-01T00:00:00Z, which is not after its publication and "
         "after now"},
        {{L"--issue", L"1", L"--expires", L"2099-01-01T00:00:00Z", L"--published",
          L"2099-01-01T00:00:00Z"},
         "The feed would expire at 2099-01-01T00:00:00Z, which is not after its publication and "
         "after now"},
        {EnoughAnd({L"--channel", L"Stable"}),
         "--channel needs a name of the characters a to z, 0 to 9 and -, at most 32, not Stable"},
        {EnoughAnd({L"--channel", std::wstring(33, L'a')}),
         "--channel needs a name of the characters a to z, 0 to 9 and -, at most 32, not " +
             std::string(33, 'a')},
        {EnoughAnd({L"--address", L"http://example.com/a"}),
         "--address needs an address that is relative or begins with https://, not "
         "http://example.com/a"},
        {EnoughAnd({L"--address", L"a b"}),
         "--address needs an address that is relative or begins with https://, not a b"},
        {EnoughAnd({L"--address", L"\u4E2D\xD800\t"}),
         "--address needs an address that is relative or begins with https://, not "
         "\xE4\xB8\xAD<U+D800><U+0009>"},
        {EnoughAnd({L"--address", tooLong}),
         "--address needs an address that is relative or begins with https://, not " + longest +
             "a"},
        {EnoughAnd({L"--notes", L"notes.html"}),
         "--notes needs an address that begins with https://, not notes.html"},
        {EnoughAnd({L"--notes", tooLong}),
         "--notes needs an address that begins with https://, not " + longest + "a"},
        {EnoughAnd({L"--share", L"101"}), "--share needs a number from 0 to 100, not 101"},
        {EnoughAnd({L"--share", L"5%"}), "--share needs a number from 0 to 100, not 5%"},
        {EnoughAnd({L"--lowest", L"1.2"}), "--lowest needs a version such as 1.2.3.4, not 1.2"},
        {EnoughAnd({L"--lowest", L"2.0.0.1"}),
         "--lowest 2.0.0.1 is higher than the release, 2.0.0.0"},
        {EnoughAnd({L"--key", L"x"}), "--key is for --signature or --after, and neither is given"},
        {{L"--after", L"x", L"--days", L"1"}, "--key is missing"},
        {EnoughAnd({L"--private-key", L"x"}), "--private-key is not an option of this command"},
        {EnoughAnd({L"--output", L"x"}), "--output is repeated"},
    };
    for (const WrongUsage& test : cases) {
        const ToolResult result = Prepare(test.options);
        EXPECT_EQ(result.exitCode, 2U) << test.why;
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.error, IDENTITY_RELEASE_TOOL_STEM ": " + test.why +
                                    "\nTry '" IDENTITY_RELEASE_TOOL_STEM " publish --help'.\n");
        EXPECT_THAT(Written(), IsEmpty()) << test.why;
    }
    // What is just within the limits.
    EXPECT_EQ(Prepare(EnoughAnd({L"--address", Utf8ToWide(longest), L"--notes", Utf8ToWide(longest),
                                 L"--channel", std::wstring(32, L'a')}))
                  .exitCode,
              0U);
    EXPECT_EQ(Payload().at("address"), longest);
}

TEST_F(PublishTest, NamesTheFileThatItCannotUse) {
    const std::wstring noVersion = Write(L"plain.exe", "no program");
    struct FaultCase {
        std::wstring setup;
        std::wstring application;
        std::wstring output;
        const char* error;
    };
    const std::wstring good = setup.native();
    const std::wstring app = application.native();
    const std::wstring place = directory.native();
    for (const FaultCase& test :
         {FaultCase{L"C:\\no setup.exe", app, place, ": Cannot read C:\\no setup.exe: "},
          {place, app, place, ": Cannot read "},
          {good, L"C:\\no app.exe", place, ": Cannot read C:\\no app.exe: "},
          {good, noVersion, place, "plain.exe: Cannot read installed executable version\n"},
          {good, app, L"C:\\none", ": Cannot open the directory C:\\none: "},
          {good, app, good, ": Cannot open the directory "},
          {Write(L"empty.exe", ""), app, place,
           "The feed's content is malformed: \"size\" has a value that is not allowed\n"}}) {
        ExpectFailure(CallTool({L"publish", test.setup, L"--app", test.application, L"--issue",
                                L"1", L"--days", L"1", L"--output", test.output}),
                      test.error);
    }
}

TEST_F(PublishTest, LeavesNoUnfinishedFile) {
    CreateDirectories(directory / kToBeSigned);
    const ToolResult result = PreparePlain();
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.error, HasSubstr(": Cannot write "));
    EXPECT_THAT(result.error, HasSubstr("update-feed.tbs: "));
    EXPECT_THAT(Written(), testing::Not(testing::Contains(EndsWith(L".tmp"))));
}

}  // namespace
}  // namespace updater
