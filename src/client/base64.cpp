#include "client/base64.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace updater {

namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kNoDigit = 64;

constexpr std::array<std::uint8_t, 256> MakeValues() {
    std::array<std::uint8_t, 256> values{};
    values.fill(kNoDigit);
    for (std::size_t value = 0; value < kDigits.size(); ++value) {
        values[static_cast<unsigned char>(kDigits[value])] = static_cast<std::uint8_t>(value);
    }
    return values;
}

constexpr std::array<std::uint8_t, 256> kValues = MakeValues();

// Appends the bytes that two to four digits stand for; false when one is none, or has bits that
// belong to no byte.
bool AppendBytes(std::string& bytes, std::string_view digits) {
    std::uint32_t bits = 0;
    for (const char digit : digits) {
        const std::uint8_t value = kValues[static_cast<unsigned char>(digit)];
        if (value == kNoDigit) {
            return false;
        }
        bits = bits << 6U | value;
    }
    std::size_t count = 6 * digits.size();
    while (count >= 8) {
        count -= 8;
        bytes.push_back(static_cast<char>(bits >> count & 0xFFU));
    }
    return (bits & ((1U << count) - 1)) == 0;
}

}  // namespace

std::string EncodeBase64(std::string_view bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    while (!bytes.empty()) {
        const std::string_view group = bytes.substr(0, 3);
        std::uint32_t bits = 0;
        for (std::size_t index = 0; index < 3; ++index) {
            bits =
                bits << 8U | (index < group.size() ? static_cast<unsigned char>(group[index]) : 0U);
        }
        for (std::size_t index = 0; index < 4; ++index) {
            text.push_back(index <= group.size() ? kDigits[bits >> (18 - 6 * index) & 0x3FU] : '=');
        }
        bytes.remove_prefix(group.size());
    }
    return text;
}

std::optional<std::string> DecodeBase64(std::string_view text) {
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3);
    while (!text.empty()) {
        std::string_view group = text.substr(0, 4);
        text.remove_prefix(4);
        for (int padding = 0; text.empty() && padding < 2 && group.ends_with('='); ++padding) {
            group.remove_suffix(1);
        }
        if (!AppendBytes(bytes, group)) {
            return std::nullopt;
        }
    }
    return bytes;
}

}  // namespace updater
