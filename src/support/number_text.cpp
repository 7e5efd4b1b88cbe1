#include "support/number_text.h"

#include <cstddef>
#include <cwctype>
#include <limits>
#include <stdexcept>
#include <string>

namespace updater {

namespace {

// The standard library's own conversions are not used: their messages and the width of `unsigned
// long` differ between toolchains. A minus sign negates modulo 2^64; cut to 32 bits, that is the
// negation modulo 2^32.
std::uint64_t ParseUnsigned(std::wstring_view text, std::uint64_t maximum,
                            const std::string& conversion) {
    std::size_t position = 0;
    while (position < text.size() && std::iswspace(static_cast<std::wint_t>(text[position])) != 0) {
        ++position;
    }
    const bool negative = position < text.size() && text[position] == L'-';
    if (negative || (position < text.size() && text[position] == L'+')) {
        ++position;
    }

    const std::size_t firstDigit = position;
    std::uint64_t value = 0;
    bool overflow = false;
    for (; position < text.size() && text[position] >= L'0' && text[position] <= L'9'; ++position) {
        const auto digit = static_cast<std::uint64_t>(text[position] - L'0');
        overflow = overflow || value > (maximum - digit) / 10;
        value = value * 10 + digit;
    }

    if (position == firstDigit) {
        throw std::invalid_argument("invalid " + conversion + " argument");
    }
    if (overflow) {
        throw std::out_of_range(conversion + " argument out of range");
    }
    return negative ? std::uint64_t{0} - value : value;
}

}  // namespace

std::uint32_t ParseUnsigned32(std::wstring_view text) {
    constexpr std::uint64_t kMaximum = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(ParseUnsigned(text, kMaximum, "stoul"));
}

std::uint64_t ParseUnsigned64(std::wstring_view text) {
    return ParseUnsigned(text, std::numeric_limits<std::uint64_t>::max(), "stoull");
}

}  // namespace updater
