#include "updatectl/stored_feeds.h"

#include "client/base64.h"
#include "client/envelope.h"

namespace updater {

namespace {

constexpr char kRelease[] =
    R"({"version":"2.0.0.0","size":15,)"
    R"("sha256":"203e123ece3b15215c5c3a07ae62b5d50f166a05982c75bd422ce69caab1b259",)"
    R"("address":"program%202.exe",)";
constexpr char kTimes[] = R"("published":"2026-11-22T18:31:00Z","expires":"2099-12-31T23:59:59Z",)";

StoredFeed Stored(const std::string& rest, const char* signature) {
    return {kRelease + rest, DecodeBase64(signature).value()};
}

}  // namespace

StoredFeed PlainFeed() {
    return Stored(std::string(R"("issue":7,)") + kTimes + R"("channel":"stable"})",
                  "MEUCIECy+slkwyLsBQNgTsAxWH313SNuZLZQYsbM3Xrr61sbAiEAkb0PdtgZSe3DjkLxIWyIp5gW33cI"
                  "+zoCfqcLdmVwMaI=");
}

StoredFeed FullFeed() {
    return Stored(std::string(R"("issue":7,)") + kTimes +
                      R"("channel":"stable","lowestVersion":"1.2.0.0","share":5,)"
                      R"("notes":"https://example.com/notes?a=%22b%22"})",
                  "MEUCIQDQO+Vzx6Y3KFvsAE8BSsh+BDAIq9d4Rii1x7DpvGO2aAIgEzGeh3jyD+/9hDy61WOHXjwJ2BAD"
                  "kgJXeZ73WdBy4Oc=");
}

StoredFeed ExpiredFeed() {
    return Stored(R"("issue":7,"published":"2019-12-01T00:00:00Z",)"
                  R"("expires":"2020-01-01T00:00:00Z","channel":"stable"})",
                  "MEUCIQCRkpfEZGiKECQ/NuIBot+/HwUGuyiJxMHigpj7VGtwOAIgN2P9ld4m+vJ6Mt+HG+UNxg3YkcMy"
                  "PKDJxw3H8HO2e8E=");
}

StoredFeed BetaFeed() {
    return Stored(std::string(R"("issue":7,)") + kTimes + R"("channel":"beta"})",
                  "MEYCIQCRlTSStO+6MIHReTA+8LoxGgGKgyPq311lYvPGxGyKQgIhAL/B8tM/idS0fY18wdS5PQpNjrGZ"
                  "zXW5DefuIFCoow7P");
}

StoredFeed LastFeed() {
    return Stored(std::string(R"("issue":4294967295,)") + kTimes + R"("channel":"stable"})",
                  "MEUCIQDss71M29fKr/oVRrJ88nQ6orPcZyrzW8E06CNshMefVgIgVBsBAdoY6nYDsAcCUv5bUK8NHVQL"
                  "mIM2lamla14bwzA=");
}

std::string SignatureByOtherKey() {
    return DecodeBase64(
               "MEYCIQCVNSnEEQibjiRWDZRrTcEDJEkI00b6wLaEmQSDiWTpqwIhAJCl29h2wloUJuZHs2fr"
               "3IWXS9zgw+4Afav4th/UXibp")
        .value();
}

std::string PublishedText(const StoredFeed& feed) {
    return MakeEnvelope(feed.payload, kPublicKeyId, feed.signature);
}

}  // namespace updater
