// Keys and signatures in the forms in which they are exchanged, and what the system makes of them.

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>

#include "client/base64.h"
#include "client/ecdsa_curve.h"
#include "client/ecdsa_der.h"
#include "client/envelope.h"
#include "client/feed/feed_vectors.h"
#include "client/signature.h"

namespace updater {
namespace {

PublicKey KeyOf(std::string_view pem) {
    const std::optional<PublicKey> key = ReadPublicKey(pem);
    EXPECT_TRUE(key);
    return key.value_or(PublicKey());
}

std::string DerOf(std::string_view base64) {
    return DecodeBase64(base64).value();
}

std::string Base64OfPem(std::string_view pem) {
    std::string lines(pem.substr(pem.find('\n') + 1));
    lines.erase(lines.find('-'));
    std::erase(lines, '\n');
    return lines;
}

std::string Replaced(std::string text, std::string_view part, std::string_view replacement) {
    for (std::size_t place = text.find(part); place != std::string::npos;
         place = text.find(part, place + replacement.size())) {
        text.replace(place, part.size(), replacement);
    }
    return text;
}

TEST(ReadPublicKey, TellsTheNumberThatOpensslHasForIt) {
    EXPECT_EQ(KeyOf(kKeyA).id, kKeyAId);
    EXPECT_EQ(KeyOf(kKeyB).id, kKeyBId);
    EXPECT_EQ(KeyOf(kKeyC).id, kKeyCId);
}

TEST(ReadPublicKey, ReadsAFileOrWhatStandsBetweenItsLines) {
    const std::string pem(kKeyA);
    const std::string base64 = Base64OfPem(kKeyA);
    for (const std::string& text :
         {pem, Replaced(pem, "\n", "\r\n"), Replaced(pem, "\n", ""), "\n " + pem + "\n\n", base64,
          base64 + "\n", base64.substr(0, 64) + "\n" + base64.substr(64)}) {
        EXPECT_EQ(KeyOf(text).id, kKeyAId) << text;
    }
}

TEST(ReadPublicKey, RefusesOtherTexts) {
    const std::string pem(kKeyA);
    const std::string base64 = Base64OfPem(kKeyA);
    for (const std::string& text :
         {std::string(), std::string("-----BEGIN PUBLIC KEY-----"),
          std::string("-----BEGIN PUBLIC KEY----------END PUBLIC KEY-----"), "x" + pem, pem + "x",
          pem + pem, Replaced(pem, "PUBLIC", "PRIVATE"), Replaced(pem, "-----END", "----END"),
          Replaced(pem, "-----END PUBLIC KEY-----", ""), base64.substr(4), base64 + "AAAA",
          base64.substr(0, base64.size() - 4), "AAAA" + base64,
          base64.substr(0, 60) + " " + base64.substr(60), Replaced(base64, "iA==", "iB=="),
          Replaced(base64, "==", "")}) {
        EXPECT_FALSE(ReadPublicKey(text)) << text;
    }
}

TEST(ReadPublicKey, RefusesKeysOfAnotherKindOrForm) {
    for (const KeyVector& key : kOtherKeys) {
        EXPECT_FALSE(ReadPublicKey(key.pem)) << key.description;
    }
}

// In the point a changed bit leaves the curve; before it, it makes the key another thing.
TEST(ReadPublicKey, RefusesAKeyWithAnyOtherBit) {
    const std::string der = DerOf(Base64OfPem(kKeyA));
    ASSERT_EQ(der.size(), 91U);
    for (std::size_t bit = 0; bit < 8 * der.size(); ++bit) {
        std::string changed = der;
        changed[bit / 8] = static_cast<char>(changed[bit / 8] ^ (1 << bit % 8));
        ASSERT_FALSE(ReadPublicKey(EncodeBase64(changed))) << bit;
    }
}

TEST(IsOnCurve, KnowsPointsOfTheCurve) {
    for (const std::string_view pem : {kKeyA, kKeyB, kKeyC}) {
        EcdsaPoint point = KeyOf(pem).point;
        EXPECT_TRUE(IsOnCurve(point));
        std::swap(point[0], point[32]);
        EXPECT_FALSE(IsOnCurve(point));
    }
    EXPECT_FALSE(IsOnCurve({}));
}

// The point with X = 0: Y is a square root of the curve's constant
// (openssl prime and python's pow(b, (p + 1) // 4, p)).
constexpr std::string_view kYOfZero =
    "\x66\x48\x5C\x78\x0E\x2F\x83\xD7\x24\x33\xBD\x5D\x84\xA0\x6B\xB6"
    "\x54\x1C\x2A\xF3\x1D\xAE\x87\x17\x28\xBF\x85\x6A\x17\x4F\x93\xF4";
constexpr unsigned char kPrime[32] = {
    0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

TEST(IsOnCurve, RefusesCoordinatesBeyondTheField) {
    EcdsaPoint point{};
    std::ranges::copy(kYOfZero, point.begin() + 32);
    EXPECT_TRUE(IsOnCurve(point));
    // The same number, once around the field.
    std::ranges::copy(kPrime, point.begin());
    EXPECT_FALSE(IsOnCurve(point));
    std::ranges::fill(point, std::uint8_t{0xFF});
    EXPECT_FALSE(IsOnCurve(point));
}

TEST(ReadEcdsaSignature, FillsShortNumbersUpWithZeros) {
    const std::optional<EcdsaSignature> signature =
        ReadEcdsaSignature(std::string("\x30\x07\x02\x01\x05\x02\x02\x00\x80", 9));
    ASSERT_TRUE(signature);
    EcdsaSignature expected{};
    expected[31] = 5;
    expected[63] = 0x80;
    EXPECT_EQ(*signature, expected);
}

std::string Element(char type, const std::string& content) {
    return std::string{type, static_cast<char>(content.size())} + content;
}

std::string SignatureOf(const std::string& r, const std::string& s) {
    return Element('\x30', Element('\x02', r) + Element('\x02', s));
}

// The number of points on the curve, and the largest number below it.
const std::string kOrder = {
    "\xFF\xFF\xFF\xFF\x00\x00\x00\x00\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"
    "\xBC\xE6\xFA\xAD\xA7\x17\x9E\x84\xF3\xB9\xCA\xC2\xFC\x63\x25\x51",
    32};

TEST(ReadEcdsaSignature, TakesNumbersBelowTheOrder) {
    const std::string zero(1, '\0');
    const std::string one(1, '\x01');
    std::string largest = kOrder;
    largest.back() = '\x50';
    EXPECT_TRUE(ReadEcdsaSignature(SignatureOf(one, zero + largest)));
    EXPECT_TRUE(ReadEcdsaSignature(SignatureOf(zero + largest, one)));
    EXPECT_TRUE(ReadEcdsaSignature(SignatureOf(std::string(32, '\x7F'), one)));
    for (const std::string& number :
         {zero + kOrder, zero + std::string(32, '\xFF'), zero, std::string(), largest,
          zero + zero + largest, zero + one, std::string(1, '\x80'), std::string(33, '\x7F'),
          zero + std::string(33, '\xFF'), std::string(127 - 6, '\x01')}) {
        EXPECT_FALSE(ReadEcdsaSignature(SignatureOf(one, number)))
            << testing::PrintToString(number);
        EXPECT_FALSE(ReadEcdsaSignature(SignatureOf(number, one)))
            << testing::PrintToString(number);
    }
}

TEST(ReadEcdsaSignature, RefusesEveryOtherForm) {
    const std::string one = Element('\x02', "\x01");
    const std::string two = Element('\x02', "\x02");
    const std::string good = Element('\x30', one + two);
    ASSERT_TRUE(ReadEcdsaSignature(good));
    for (const std::string& der :
         {std::string(), std::string("\x30"), Element('\x30', ""), Element('\x30', one),
          Element('\x30', one + two + one), Element('\x31', one + two), one + two, good + '\0',
          good.substr(0, good.size() - 1), Element('\x30', one + two + '\0'),
          Element('\x30', one + Element('\x03', "\x02")), std::string("\x30\x81\x06") + one + two,
          std::string("\x30\x80") + one + two + std::string(2, '\0'),
          Element('\x30', std::string("\x02\x81\x01\x01") + two),
          std::string("\x30\x7F") + one + two, Element('\x30', one + "\x02\x7F\x01")}) {
        EXPECT_FALSE(ReadEcdsaSignature(der)) << testing::PrintToString(der);
    }
}

TEST(ReadEcdsaSignature, EveryTextIsOneSignatureOrNone) {
    const std::string der = DerOf(kSignatureA);
    const std::optional<EcdsaSignature> signature = ReadEcdsaSignature(der);
    ASSERT_TRUE(signature);
    for (std::size_t place = 0; place < der.size(); ++place) {
        for (int value = 0; value < 256; ++value) {
            std::string changed = der;
            changed[place] = static_cast<char>(value);
            if (changed != der) {
                ASSERT_NE(ReadEcdsaSignature(changed), signature) << place << ' ' << value;
            }
        }
    }
}

TEST(IsSignedBy, TakesWhatOpensslSigned) {
    const std::string message = PreAuthenticationEncoding(kPayload);
    const PublicKey key = KeyOf(kKeyA);
    for (const SignatureVector& vector : kSignaturesOfAllLengths) {
        const std::optional<EcdsaSignature> signature = ReadEcdsaSignature(DerOf(vector.base64));
        ASSERT_TRUE(signature) << vector.description;
        EXPECT_TRUE(IsSignedBy(key, message, *signature)) << vector.description;
        EXPECT_FALSE(IsSignedBy(KeyOf(kKeyB), message, *signature)) << vector.description;
        EXPECT_FALSE(IsSignedBy(key, message + ' ', *signature)) << vector.description;
        EXPECT_FALSE(IsSignedBy(key, std::string_view(message).substr(1), *signature));
    }
}

TEST(IsSignedBy, RefusesEverySignatureWithAnotherBit) {
    const std::string message = PreAuthenticationEncoding(kPayload);
    const PublicKey key = KeyOf(kKeyB);
    const EcdsaSignature signature = ReadEcdsaSignature(DerOf(kSignatureB)).value();
    ASSERT_TRUE(IsSignedBy(key, message, signature));
    for (std::size_t bit = 0; bit < 8 * signature.size(); ++bit) {
        EcdsaSignature changed = signature;
        changed[bit / 8] = static_cast<std::uint8_t>(changed[bit / 8] ^ 1U << bit % 8);
        ASSERT_FALSE(IsSignedBy(key, message, changed)) << bit;
    }
    EXPECT_FALSE(IsSignedBy(key, message, {}));
}

}  // namespace
}  // namespace updater
