#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "client/envelope.h"
#include "fixtures/application_names.h"
#include "support/text_conversion.h"
#include "updatectl/release_to_publish.h"
#include "updatectl/stored_feeds.h"

namespace updater {
namespace {

const std::string kFullText =
    kShownFeed + std::string(
                     "lowestVersion  1.2.0.0\n"
                     "share          5\n"
                     "notes          https://example.com/notes?a=%22b%22\n");

constexpr char kFullJson[] =
    R"({"version":"2.0.0.0","size":15,)"
    R"("sha256":"203e123ece3b15215c5c3a07ae62b5d50f166a05982c75bd422ce69caab1b259",)"
    R"("address":"program%202.exe","issue":7,"published":"2026-11-22T18:31:00Z",)"
    R"("expires":"2099-12-31T23:59:59Z","expired":false,"channel":"stable",)"
    R"("lowestVersion":"1.2.0.0","share":5,"notes":"https://example.com/notes?a=%22b%22"})"
    "\n";

struct FeedTest : testing::Test, ReleaseToPublish {
    [[nodiscard]] ToolResult Show(const std::string& feed, const std::wstring& key = L"key.pub",
                                  const std::vector<std::wstring>& more = {}) const {
        std::vector<std::wstring> arguments = {L"feed", Write(L"\u4E2D %20.json", feed), L"--key",
                                               (directory / key).native()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return CallTool(arguments);
    }

    void ExpectRefused(const std::string& feed, const std::string& reason) const {
        ExpectUnusable(Show(feed), L"\u4E2D %20.json", reason);
    }
};

TEST_F(FeedTest, ShowsWhatAGoodFeedSays) {
    const ToolResult result = Show(PublishedText(FullFeed()));
    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.output, kFullText);
}

TEST_F(FeedTest, PrintsItAsJson) {
    const ToolResult result = Show(PublishedText(FullFeed()), L"key.pub", {L"--json"});
    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_EQ(result.output, kFullJson);
    const nlohmann::json plain =
        nlohmann::json::parse(Show(PublishedText(PlainFeed()), L"key.pub", {L"--json"}).output);
    EXPECT_EQ(plain.at("lowestVersion"), "0.0.0.0");
    EXPECT_EQ(plain.at("share"), 100);
    EXPECT_EQ(plain.at("notes"), "");
}

TEST_F(FeedTest, TakesASignatureByAnyOfTheKeys) {
    const std::wstring other = (directory / L"other.pub").native();
    EXPECT_EQ(Show(PublishedText(FullFeed()), L"key.pub", {L"--key", other}).output, kFullText);
    EXPECT_EQ(Show(MakeEnvelope(PlainFeed().payload, kOtherPublicKeyId, SignatureByOtherKey()),
                   L"key.pub", {L"--key", other})
                  .exitCode,
              0U);
}

TEST_F(FeedTest, ShowsAnExpiredFeedAndFails) {
    const ToolResult text = Show(PublishedText(ExpiredFeed()));
    EXPECT_EQ(text.exitCode, 1U);
    EXPECT_THAT(text.output,
                testing::HasSubstr("\nexpires        2020-01-01T00:00:00Z, has expired\n"));
    EXPECT_EQ(text.error, "");
    const ToolResult json = Show(PublishedText(ExpiredFeed()), L"key.pub", {L"--json"});
    EXPECT_EQ(json.exitCode, 1U);
    EXPECT_EQ(nlohmann::json::parse(json.output).at("expired"), true);
}

TEST_F(FeedTest, RefusesWhatHasNoGoodSignature) {
    const StoredFeed plain = PlainFeed();
    ExpectRefused(MakeEnvelope(plain.payload, kOtherPublicKeyId, SignatureByOtherKey()),
                  "The feed has no signature by a known key");
    // Another feed's signature, by the right key.
    ExpectRefused(MakeEnvelope(plain.payload, kPublicKeyId, FullFeed().signature),
                  std::string("The feed's signature does not fit; key ") + kPublicKeyId);
    std::string unsignedFeed = PublishedText(plain);
    unsignedFeed.erase(unsignedFeed.find("[{"));
    ExpectRefused(unsignedFeed + "[]}", "The feed has no signature");
}

TEST_F(FeedTest, RefusesWhatIsNoFeed) {
    const std::string good = PublishedText(PlainFeed());
    for (const std::string& text : {std::string(), good.substr(1), good + "x", PlainFeed().payload,
                                    std::string(kPublicKey), good + std::string(1, '\0')}) {
        const ToolResult result = Show(text);
        EXPECT_EQ(result.exitCode, 1U) << text;
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(result.error,
                    testing::HasSubstr(" %20.json: The feed is not a signed envelope: "));
    }
    constexpr std::size_t kMostBytes = 1048576;
    ExpectRefused(std::string(kMostBytes + 1, ' '), "it has more than 1048576 bytes");
    // One that has exactly so many is read.
    EXPECT_EQ(Show(good + std::string(kMostBytes - good.size(), ' ')).exitCode, 0U);
}

TEST_F(FeedTest, RefusesWhatIsNoPublicKey) {
    const std::string good = PublishedText(PlainFeed());
    std::string privateKey = kPublicKey;
    for (std::size_t at = privateKey.find("PUBLIC"); at != std::string::npos;
         at = privateKey.find("PUBLIC")) {
        privateKey.replace(at, 6, "PRIVATE");
    }
    for (const std::string& text : {std::string(), privateKey, std::string("no key"),
                                    std::string(kPublicKey).substr(0, 100)}) {
        Write(L"none.pub", text);
        ExpectUnusable(Show(good, L"none.pub"), L"none.pub",
                       "it is no public key of the curve P-256 in PEM form");
    }
    Write(L"none.pub", std::string(65537, 'A'));
    ExpectUnusable(Show(good, L"none.pub"), L"none.pub", "it has more than 65536 bytes");
}

TEST_F(FeedTest, SaysWhichFileIsMissing) {
    const std::wstring key = (directory / L"key.pub").native();
    for (const auto& [feed, keyFile] :
         {std::pair<std::wstring, std::wstring>(L"C:\\none\\x", key),
          {Write(L"feed", PublishedText(PlainFeed())), L"C:\\none\\x"}}) {
        const ToolResult result = CallTool({L"feed", feed, L"--key", keyFile});
        EXPECT_EQ(result.exitCode, 1U);
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(result.error, testing::HasSubstr("Cannot read C:\\none\\x: "));
    }
}

}  // namespace
}  // namespace updater
