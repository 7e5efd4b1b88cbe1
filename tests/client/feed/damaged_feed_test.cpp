#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "client/base64.h"
#include "client/envelope.h"
#include "client/failure.h"
#include "client/feed.h"
#include "client/feed/feed_vectors.h"
#include "fuzz/oracle/feed_rules.h"
#include "inputs/random_source.h"

namespace updater {
namespace {

std::vector<PublicKey> KnownKeys() {
    return {ReadPublicKey(kKeyA).value(), ReadPublicKey(kKeyB).value()};
}

std::string GoodEnvelope() {
    return MakeEnvelope(kPayload, kKeyAId, DecodeBase64(kSignatureA).value());
}

// The code with which an envelope, or its payload, is refused; APP_UPDATE_OK for one that is not.
AppUpdateResult ResultOf(const std::string& envelope, const std::vector<PublicKey>& keys) {
    try {
        ReadFeed(OpenEnvelope(envelope, keys));
        return APP_UPDATE_OK;
    } catch (const ClientFailure& failure) {
        return failure.result;
    }
}

void PrintResults(const std::map<AppUpdateResult, int>& results) {
    for (const auto& [result, times] : results) {
        std::cout << times << " x result " << result << '\n';
    }
}

TEST(DamagedFeed, EveryByteChangedToEveryOtherIsRefused) {
    const std::vector<PublicKey> keys = KnownKeys();
    const std::string good = GoodEnvelope();
    ASSERT_EQ(ResultOf(good, keys), APP_UPDATE_OK);
    std::map<AppUpdateResult, int> results;
    std::string envelope = good;
    const auto begin = std::chrono::steady_clock::now();
    for (std::size_t place = 0; place < good.size(); ++place) {
        for (int value = 0; value < 256; ++value) {
            envelope[place] = static_cast<char>(value);
            if (envelope[place] != good[place]) {
                const AppUpdateResult result = ResultOf(envelope, keys);
                ASSERT_TRUE(result == APP_UPDATE_FEED_MALFORMED ||
                            result == APP_UPDATE_BAD_SIGNATURE)
                    << place << ' ' << value << ' ' << result;
                ++results[result];
            }
        }
        envelope[place] = good[place];
    }
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
    std::cout << good.size() << " bytes, 255 values each, " << passed.count() << " s\n";
    PrintResults(results);
    EXPECT_EQ(results[APP_UPDATE_FEED_MALFORMED] + results[APP_UPDATE_BAD_SIGNATURE],
              static_cast<int>(good.size()) * 255);
    EXPECT_GT(results[APP_UPDATE_BAD_SIGNATURE], 20000);
}

TEST(DamagedFeed, EveryByteLeftOutOrAddedIsRefused) {
    const std::vector<PublicKey> keys = KnownKeys();
    const std::string good = GoodEnvelope();
    for (std::size_t place = 0; place < good.size(); ++place) {
        ASSERT_NE(ResultOf(std::string(good).erase(place, 1), keys), APP_UPDATE_OK) << place;
        ASSERT_NE(ResultOf(good.substr(0, place), keys), APP_UPDATE_OK) << place;
        // A backslash before a slash is another way to write that, and the same text.
        for (const char added : {'\0', '"', ',', 'A', '=', '/', '{', '\x80'}) {
            ASSERT_NE(ResultOf(std::string(good).insert(place, 1, added), keys), APP_UPDATE_OK)
                << place << ' ' << static_cast<int>(added);
        }
    }
}

constexpr std::string_view kPieces[] = {"\"",
                                        "{",
                                        "}",
                                        "[",
                                        "]",
                                        ",",
                                        ":",
                                        "\\",
                                        "\\u0000",
                                        "\\ud800",
                                        "null",
                                        "true",
                                        "-1",
                                        "0",
                                        "1e9",
                                        "18446744073709551616",
                                        "\"size\":",
                                        "\"size\":1,",
                                        "\"x\":{}",
                                        "\xFF",
                                        "\xC3\xA9",
                                        "\xEF\xBB\xBF",
                                        " ",
                                        "\n",
                                        "=",
                                        "==",
                                        "65536",
                                        "99999",
                                        "2024-02-30",
                                        "http://",
                                        "https://",
                                        "//",
                                        "@",
                                        ".exe",
                                        "8589934593",
                                        "4294967296",
                                        "Z",
                                        "f",
                                        "[[[[[[[[[[[[[[[[[",
                                        "{\"a\":{\"a\":"};

// One to four changes: bytes, pieces put in, parts left out, doubled or exchanged.
std::string Damaged(RandomSource& random, std::string text) {
    const std::size_t changes = 1 + RandomBelow(random, 4);
    for (std::size_t change = 0; change < changes && !text.empty(); ++change) {
        const std::size_t place = RandomBelow(random, text.size());
        const std::size_t length = 1 + RandomBelow(random, 12);
        switch (RandomBelow(random, 6)) {
            case 0:
                text[place] = static_cast<char>(RandomBelow(random, 256));
                break;
            case 1:
                text[place] = static_cast<char>(text[place] ^ (1 << RandomBelow(random, 7)));
                break;
            case 2:
                text.insert(place, OneOf(random, kPieces));
                break;
            case 3:
                text.erase(place, length);
                break;
            case 4:
                text.insert(RandomBelow(random, text.size()), text.substr(place, 4 * length));
                break;
            default:
                text.replace(place, length, OneOf(random, kPieces));
                break;
        }
    }
    return text;
}

constexpr int kFeeds = 10000;

TEST(DamagedFeed, TenThousandDamagedEnvelopesAreRefused) {
    const std::vector<PublicKey> keys = KnownKeys();
    const std::string good = GoodEnvelope();
    RandomSource random = MakeRandomSource("envelopes");
    std::map<AppUpdateResult, int> results;
    for (int round = 0; round < kFeeds; ++round) {
        // Half of them are damaged below the envelope.
        const std::string envelope = OneIn(random, 2)
                                         ? Damaged(random, good)
                                         : MakeEnvelope(Damaged(random, std::string(kPayload)),
                                                        kKeyAId, DecodeBase64(kSignatureA).value());
        if (envelope != good) {
            const AppUpdateResult result = ResultOf(envelope, keys);
            // White space between the values is the one thing that means nothing.
            if (result == APP_UPDATE_OK) {
                ASSERT_EQ(OpenEnvelope(envelope, keys), kPayload);
                std::string dense = envelope;
                std::erase_if(dense, [](char character) {
                    return character == ' ' || character == '\n' || character == '\r' ||
                           character == '\t';
                });
                ASSERT_EQ(dense, good);
            } else {
                ASSERT_TRUE(result == APP_UPDATE_FEED_MALFORMED ||
                            result == APP_UPDATE_BAD_SIGNATURE)
                    << envelope;
            }
            ++results[result];
        }
    }
    PrintResults(results);
    EXPECT_GT(results[APP_UPDATE_FEED_MALFORMED], kFeeds / 4);
    EXPECT_GT(results[APP_UPDATE_BAD_SIGNATURE], kFeeds / 4);
}

// As if somebody had signed them.
TEST(DamagedFeed, TenThousandDamagedPayloadsAreReadByTheRules) {
    RandomSource random = MakeRandomSource("payloads");
    int accepted = 0;
    for (int round = 0; round < kFeeds; ++round) {
        const std::string payload = Damaged(random, std::string(kPayload));
        const std::optional<Feed> expected = FeedByTheRules(payload);
        std::optional<Feed> feed;
        try {
            feed = ReadFeed(payload);
        } catch (const ClientFailure& failure) {
            ASSERT_EQ(failure.result, APP_UPDATE_FEED_MALFORMED) << failure.what();
        }
        ASSERT_EQ(feed, expected) << payload;
        if (feed) {
            ASSERT_EQ(ReadFeed(WriteFeed(*feed)), feed);
            ++accepted;
        }
    }
    std::cout << accepted << " of " << kFeeds << " are still feeds\n";
    EXPECT_GT(accepted, kFeeds / 50);
    EXPECT_LT(accepted, kFeeds / 2);
}

}  // namespace
}  // namespace updater
