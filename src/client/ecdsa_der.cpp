#include "client/ecdsa_der.h"

#include <algorithm>
#include <cstddef>
#include <span>

namespace updater {

namespace {

using namespace std::string_view_literals;

// A sequence of the algorithm (a public key on a curve, the curve P-256) and a string of bits, none
// of them unused, that holds an uncompressed point. All of it has a fixed length.
constexpr std::string_view kPointPrefix =
    "\x30\x59\x30\x13\x06\x07\x2A\x86\x48\xCE\x3D\x02\x01"
    "\x06\x08\x2A\x86\x48\xCE\x3D\x03\x01\x07\x03\x42\x00\x04"sv;

// The number of points on the curve.
constexpr std::string_view kOrder =
    "\xFF\xFF\xFF\xFF\x00\x00\x00\x00\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"
    "\xBC\xE6\xFA\xAD\xA7\x17\x9E\x84\xF3\xB9\xCA\xC2\xFC\x63\x25\x51"sv;

constexpr char kSequence = '\x30';
constexpr char kInteger = '\x02';
constexpr std::size_t kNumberBytes = 32;

bool IsNegative(std::string_view number) {
    return static_cast<unsigned char>(number.front()) >= 0x80;
}

// Takes an element of this type from the beginning. A signature's lengths fit into one byte.
std::optional<std::string_view> TakeElement(std::string_view& der, char type) {
    if (der.size() < 2 || der[0] != type) {
        return std::nullopt;
    }
    const auto length = static_cast<unsigned char>(der[1]);
    if (length >= 0x80 || length > der.size() - 2) {
        return std::nullopt;
    }
    const std::string_view content = der.substr(2, length);
    der.remove_prefix(2 + std::size_t{length});
    return content;
}

// Takes a number from 1 up to the curve's order from the beginning.
bool TakeNumber(std::string_view& der, std::span<std::uint8_t, kNumberBytes> number) {
    std::optional<std::string_view> digits = TakeElement(der, kInteger);
    if (!digits || digits->empty() || IsNegative(*digits)) {
        return false;
    }
    if (digits->front() == '\0') {
        digits->remove_prefix(1);
        // The zero stands only before what would be negative without it.
        if (digits->empty() || !IsNegative(*digits)) {
            return false;
        }
    }
    if (digits->size() > kNumberBytes || (digits->size() == kNumberBytes && *digits >= kOrder)) {
        return false;
    }
    std::ranges::fill(number, std::uint8_t{0});
    std::ranges::transform(*digits, number.end() - static_cast<std::ptrdiff_t>(digits->size()),
                           [](char digit) { return static_cast<std::uint8_t>(digit); });
    return true;
}

}  // namespace

std::optional<EcdsaPoint> ReadEcdsaPoint(std::string_view der) {
    EcdsaPoint point{};
    if (!der.starts_with(kPointPrefix) || der.size() != kPointPrefix.size() + point.size()) {
        return std::nullopt;
    }
    std::ranges::transform(der.substr(kPointPrefix.size()), point.begin(),
                           [](char byte) { return static_cast<std::uint8_t>(byte); });
    return point;
}

std::optional<EcdsaSignature> ReadEcdsaSignature(std::string_view der) {
    std::optional<std::string_view> numbers = TakeElement(der, kSequence);
    EcdsaSignature signature{};
    const std::span<std::uint8_t, 64> bytes(signature);
    if (!numbers || !der.empty() || !TakeNumber(*numbers, bytes.first<kNumberBytes>()) ||
        !TakeNumber(*numbers, bytes.last<kNumberBytes>()) || !numbers->empty()) {
        return std::nullopt;
    }
    return signature;
}

}  // namespace updater
