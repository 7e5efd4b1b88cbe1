#include "client/base64.h"

#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <string>

namespace updater {
namespace {

// From the standard (RFC 4648).
constexpr std::pair<std::string_view, std::string_view> kExamples[] = {
    {"", ""},
    {"f", "Zg=="},
    {"fo", "Zm8="},
    {"foo", "Zm9v"},
    {"foob", "Zm9vYg=="},
    {"fooba", "Zm9vYmE="},
    {"foobar", "Zm9vYmFy"},
};

TEST(Base64, IsThatOfTheStandard) {
    for (const auto& [bytes, text] : kExamples) {
        EXPECT_EQ(EncodeBase64(bytes), text);
        EXPECT_EQ(DecodeBase64(text), bytes);
    }
}

TEST(Base64, KeepsEveryByteAtEveryPlace) {
    for (int value = 0; value < 256; ++value) {
        for (std::size_t length = 1; length <= 4; ++length) {
            for (std::size_t place = 0; place < length; ++place) {
                std::string bytes(length, 'x');
                bytes[place] = static_cast<char>(value);
                ASSERT_EQ(DecodeBase64(EncodeBase64(bytes)), bytes) << value;
            }
        }
    }
}

// All texts of four characters out of digits, padding and what is close to them.
TEST(Base64, StandsForBytesOnlyInTheFormInWhichTheyAreWritten) {
    constexpr std::string_view kCharacters("AQgw/+=-_ \n\0z\x80", 14);
    std::size_t accepted = 0;
    std::set<std::string> decoded;
    std::string text(4, ' ');
    for (const char first : kCharacters) {
        for (const char second : kCharacters) {
            for (const char third : kCharacters) {
                for (const char fourth : kCharacters) {
                    text = {first, second, third, fourth};
                    if (const std::optional<std::string> bytes = DecodeBase64(text)) {
                        ASSERT_EQ(EncodeBase64(*bytes), text);
                        ++accepted;
                        decoded.insert(*bytes);
                    }
                }
            }
        }
    }
    EXPECT_EQ(decoded.size(), accepted);
    // Seven digits; four of them (A, Q, g, w) end with zero bits and may stand before the padding.
    EXPECT_EQ(accepted, 7U * 7 * 7 * 7 + 7U * 7 * 4 + 7U * 4);
}

TEST(Base64, RefusesWhatIsCutOffOrGoesOn) {
    for (const char* text :
         {"Z", "Zg", "Zg=", "Zg===", "====", "Zm9v=", "Zm9vZ", "Zg==Zg==", "Zm8=Zm9v", " Zm9v",
          "Zm9v\n", "Zm9v\r\nZm9v", "Z=g=", "=Zg=", "Zh==", "Zm9=", "Zm-v", "Zm_v"}) {
        EXPECT_EQ(DecodeBase64(text), std::nullopt) << text;
    }
}

}  // namespace
}  // namespace updater
