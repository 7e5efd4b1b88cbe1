#include "support/number_text.h"

#include <cstddef>
#include <cwctype>
#include <limits>
#include <stdexcept>
#include <string>

namespace updater {

namespace {

// The standard library's own conversions are not used: their messages and the width of `unsigned
// long` differ between toolchains.
template <typename Unsigned>
Unsigned ParseUnsigned(std::wstring_view text, const std::string& conversion) {
    std::size_t position = 0;
    while (position < text.size() && std::iswspace(static_cast<std::wint_t>(text[position])) != 0) {
        ++position;
    }
    const bool negative = position < text.size() && text[position] == L'-';
    if (negative || (position < text.size() && text[position] == L'+')) {
        ++position;
    }

    constexpr Unsigned kMaximum = std::numeric_limits<Unsigned>::max();
    const std::size_t firstDigit = position;
    Unsigned value = 0;
    bool overflow = false;
    for (; position < text.size() && text[position] >= L'0' && text[position] <= L'9'; ++position) {
        const auto digit = static_cast<Unsigned>(text[position] - L'0');
        overflow = overflow || value > (kMaximum - digit) / 10;
        value = value * 10 + digit;
    }

    if (position == firstDigit) {
        throw std::invalid_argument("invalid " + conversion + " argument");
    }
    if (overflow) {
        throw std::out_of_range(conversion + " argument out of range");
    }
    return negative ? Unsigned{0} - value : value;
}

}  // namespace

std::uint32_t ParseUnsigned32(std::wstring_view text) {
    return ParseUnsigned<std::uint32_t>(text, "stoul");
}

std::uint64_t ParseUnsigned64(std::wstring_view text) {
    return ParseUnsigned<std::uint64_t>(text, "stoull");
}

}  // namespace updater
