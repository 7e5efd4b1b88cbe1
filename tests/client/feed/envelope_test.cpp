#include "client/envelope.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "client/base64.h"
#include "client/client_failures.h"
#include "client/feed/feed_vectors.h"

namespace updater {
namespace {

std::vector<PublicKey> KeysOf(std::initializer_list<std::string_view> pems) {
    std::vector<PublicKey> keys;
    for (const std::string_view pem : pems) {
        keys.push_back(ReadPublicKey(pem).value());
    }
    return keys;
}

std::string Quoted(std::string_view text) {
    return '"' + std::string(text) + '"';
}

std::string Signature(std::string_view keyId, std::string_view base64) {
    return R"({"keyid":)" + Quoted(keyId) + R"(,"sig":)" + Quoted(base64) + "}";
}

std::string Envelope(const std::string& signatures,
                     const std::string& payload = EncodeBase64(kPayload),
                     const std::string& type = kFeedPayloadType) {
    return R"({"payloadType":)" + Quoted(type) + R"(,"payload":)" + Quoted(payload) +
           R"(,"signatures":[)" + signatures + "]}";
}

const std::string kGood = Signature(kKeyAId, kSignatureA);

void ExpectRefusal(const std::string& envelope, AppUpdateResult result, const std::string& text) {
    EXPECT_THAT([&] { OpenEnvelope(envelope, KeysOf({kKeyA, kKeyB})); }, RaisesResult(result, text))
        << envelope;
}

void ExpectMalformed(const std::string& envelope, const std::string& problem) {
    ExpectRefusal(envelope, APP_UPDATE_FEED_MALFORMED,
                  "The feed is not a signed envelope: " + problem);
}

TEST(PreAuthenticationEncoding, HasLengthsInBytes) {
    EXPECT_EQ(PreAuthenticationEncoding("\xC3\xA9"),
              "DSSEv1 44 application/vnd.application-update-feed+json 2 \xC3\xA9");
}

TEST(OpenEnvelope, GivesThePayloadThatAKnownKeySigned) {
    EXPECT_EQ(OpenEnvelope(Envelope(kGood), KeysOf({kKeyA})), kPayload);
    EXPECT_EQ(OpenEnvelope(Envelope(kGood), KeysOf({kKeyB, kKeyA})), kPayload);
    EXPECT_EQ(OpenEnvelope(Envelope(Signature(kKeyBId, kSignatureB)), KeysOf({kKeyA, kKeyB})),
              kPayload);
}

TEST(OpenEnvelope, TakesWhitespaceAndAnyOrderOfNames) {
    const std::string envelope = "\n{ \"signatures\" : [ {\"sig\":" + Quoted(kSignatureA) +
                                 ",\"keyid\":" + Quoted(kKeyAId) +
                                 "} ],\r\n\t\"payload\":" + Quoted(EncodeBase64(kPayload)) +
                                 ",\"payloadType\":" + Quoted(kFeedPayloadType) + "}\n";
    EXPECT_EQ(OpenEnvelope(envelope, KeysOf({kKeyA})), kPayload);
}

// While a key is exchanged, both sign; others may have signed for readers of their own.
TEST(OpenEnvelope, NeedsOneGoodSignatureAmongOthers) {
    const std::string unknown = Signature(kKeyCId, kSignatureC);
    const std::string foreign = Signature("another kind", EncodeBase64("no DER"));
    const std::string wrong = Signature(kKeyBId, kSignatureC);
    for (const std::string& signatures :
         {kGood + "," + unknown, unknown + "," + kGood, foreign + "," + wrong + "," + kGood,
          wrong + "," + kGood, kGood + "," + kGood}) {
        EXPECT_EQ(OpenEnvelope(Envelope(signatures), KeysOf({kKeyA, kKeyB})), kPayload);
    }
}

TEST(OpenEnvelope, RefusesAFeedWithoutAGoodSignature) {
    const auto expect = [](const std::string& signatures, const std::string& text) {
        ExpectRefusal(Envelope(signatures), APP_UPDATE_BAD_SIGNATURE, text);
    };
    expect("", "The feed has no signature");
    expect(Signature(kKeyCId, kSignatureC), "The feed has no signature by a known key");
    const std::string misfit = "The feed's signature does not fit; key " + std::string(kKeyAId);
    expect(Signature(kKeyAId, kSignatureB), misfit);
    expect(Signature(kKeyAId, kSignatureC) + "," + Signature(kKeyCId, kSignatureC), misfit);
    expect(Signature(kKeyAId, ""), misfit);
    expect(Signature(kKeyAId, EncodeBase64("no DER")), misfit);
    expect(Signature(kKeyAId, EncodeBase64(DecodeBase64(kSignatureA).value() + '\0')), misfit);
    // The right signature under another key's number.
    expect(Signature(kKeyCId, kSignatureA), "The feed has no signature by a known key");
    expect(Signature("", kSignatureA), "The feed has no signature by a known key");
}

TEST(OpenEnvelope, RefusesEveryFeedWhereNoKeyIsKnown) {
    EXPECT_THAT([] { OpenEnvelope(Envelope(kGood), {}); }, RaisesResult(APP_UPDATE_BAD_SIGNATURE));
    EXPECT_THAT([] { OpenEnvelope(Envelope(kGood), KeysOf({kKeyB, kKeyC})); },
                RaisesResult(APP_UPDATE_BAD_SIGNATURE));
}

TEST(OpenEnvelope, RefusesAPayloadThatIsNotTheSignedOne) {
    std::string other(kPayload);
    other.replace(other.find("2.0.0.0"), 7, "2.0.0.1");
    ExpectRefusal(Envelope(kGood, EncodeBase64(other)), APP_UPDATE_BAD_SIGNATURE,
                  "The feed's signature does not fit; key " + std::string(kKeyAId));
    ExpectRefusal(Envelope(kGood, ""), APP_UPDATE_BAD_SIGNATURE, "does not fit");
}

TEST(OpenEnvelope, RefusesWhatIsNoEnvelope) {
    ExpectMalformed("", "it is not JSON from byte 1 on");
    ExpectMalformed("[]", "it is not a JSON object");
    ExpectMalformed(std::string(kPayload), "it holds more than such an envelope does");
    ExpectMalformed("{}", "\"payloadType\" is missing or of the wrong kind");
    ExpectMalformed(Envelope(kGood) + "}", "it is not JSON from byte ");
    ExpectMalformed(Envelope(kGood, EncodeBase64(kPayload), "application/json"),
                    "what it holds is not a feed");
    const std::string payload = EncodeBase64(kPayload);
    ExpectMalformed(Envelope(kGood, payload.substr(1)), "\"payload\" is not base64");
    ExpectMalformed(Envelope(kGood, payload + "\\n"), "\"payload\" is not base64");
    ExpectMalformed(Envelope(Signature(kKeyAId, "A")), "\"sig\" is not base64");
    ExpectMalformed(Envelope("[]"), "a signature is not an object");
    ExpectMalformed(Envelope("{}"), "\"keyid\" is missing or of the wrong kind");
    ExpectMalformed(Envelope(R"({"keyid":"x"})"), "\"sig\" is missing or of the wrong kind");
    ExpectMalformed(Envelope(R"({"keyid":1,"sig":""})"),
                    "\"keyid\" is missing or of the wrong kind");
}

TEST(OpenEnvelope, RefusesNamesThatTheFormDoesNotHave) {
    const std::string envelope = Envelope(kGood);
    const std::string more = "it holds more than such an envelope does";
    ExpectMalformed("{\"x\":1," + envelope.substr(1), more);
    ExpectMalformed("{\"Payload\":\"\"," + envelope.substr(1), more);
    ExpectMalformed(Envelope("{\"cert\":\"\"," + kGood.substr(1)), more);
}

TEST(OpenEnvelope, RefusesNamesThatStandTwice) {
    const std::string envelope = Envelope(kGood);
    ExpectMalformed("{\"payload\":\"\"," + envelope.substr(1), "\"payload\" stands twice");
    ExpectMalformed("{\"signatures\":[]," + envelope.substr(1), "\"signatures\" stands twice");
    ExpectMalformed(Envelope("{\"sig\":\"\"," + kGood.substr(1)), "\"sig\" stands twice");
}

TEST(OpenEnvelope, RefusesMoreThanSixteenSignatures) {
    std::string signatures = kGood;
    for (int signature = 1; signature < 16; ++signature) {
        signatures += "," + Signature(kKeyCId, kSignatureC);
    }
    EXPECT_EQ(OpenEnvelope(Envelope(signatures), KeysOf({kKeyA})), kPayload);
    ExpectMalformed(Envelope(signatures + "," + kGood), "it has more than 16 signatures");
}

TEST(OpenEnvelope, RefusesMoreThanAMebibyte) {
    const std::string envelope = Envelope(kGood);
    const std::string largest = envelope + std::string(kLargestEnvelope - envelope.size(), ' ');
    EXPECT_EQ(OpenEnvelope(largest, KeysOf({kKeyA})), kPayload);
    ExpectMalformed(largest + ' ', "it has more than 1048576 bytes");
}

TEST(MakeEnvelope, WritesTheOneCompactForm) {
    const std::string envelope = MakeEnvelope(kPayload, kKeyAId, DecodeBase64(kSignatureA).value());
    EXPECT_EQ(envelope, Envelope(kGood));
    EXPECT_EQ(OpenEnvelope(envelope, KeysOf({kKeyA})), kPayload);
}

}  // namespace
}  // namespace updater
