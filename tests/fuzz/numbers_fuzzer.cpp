// The input is the text of a number option.

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>

#include "fuzz/fuzz_input.h"
#include "fuzz/property.h"
#include "support/number_text.h"

namespace updater {
namespace {

struct NumberParts {
    bool negative = false;
    std::string digits;
};

NumberParts PartsOfText(std::wstring_view text) {
    // The white space of a program that never leaves the "C" locale.
    text.remove_prefix(std::min(text.find_first_not_of(L" \t\n\v\f\r"), text.size()));
    NumberParts parts;
    parts.negative = text.starts_with(L'-');
    if (parts.negative || text.starts_with(L'+')) {
        text.remove_prefix(1);
    }
    for (const wchar_t character : text.substr(0, text.find_first_not_of(L"0123456789"))) {
        parts.digits.push_back(static_cast<char>(character));
    }
    return parts;
}

// Compares numbers of any length as texts.
bool IsBeyond(std::string digits, const std::string& maximum) {
    digits.erase(0, digits.find_first_not_of('0'));
    return digits.size() > maximum.size() || (digits.size() == maximum.size() && digits > maximum);
}

template <typename Unsigned>
std::string ExpectedError(const NumberParts& parts, const std::string& conversion) {
    if (parts.digits.empty()) {
        return "invalid " + conversion + " argument";
    }
    if (IsBeyond(parts.digits, std::to_string(std::numeric_limits<Unsigned>::max()))) {
        return conversion + " argument out of range";
    }
    return "";
}

template <typename Unsigned>
Unsigned ExpectedValue(const NumberParts& parts) {
    Unsigned value = 0;
    std::from_chars(parts.digits.data(), parts.digits.data() + parts.digits.size(), value);
    // The number that makes zero together with the value, when it is counted around.
    return parts.negative && value != 0 ? std::numeric_limits<Unsigned>::max() - value + 1 : value;
}

template <typename Unsigned>
void CheckNumber(const std::wstring& text, Unsigned (*parse)(std::wstring_view),
                 const std::string& conversion) {
    const NumberParts parts = PartsOfText(text);
    const std::string error = ExpectedError<Unsigned>(parts, conversion);
    try {
        const Unsigned value = parse(text);
        Require(error.empty(), "a text without a number in range raises");
        Require(value == ExpectedValue<Unsigned>(parts), "the value");
    } catch (const std::invalid_argument& raised) {
        Require(parts.digits.empty() && raised.what() == error, "raised for want of a digit");
    } catch (const std::out_of_range& raised) {
        Require(!parts.digits.empty() && raised.what() == error, "raised for too large a number");
    }
}

// The standard library of this machine has 64 bits for both conversions.
void CheckAgainstStandardLibrary(const std::wstring& text) {
    std::optional<std::uint64_t> value;
    std::optional<std::uint64_t> expected;
    try {
        value = ParseUnsigned64(text);
    } catch (const std::logic_error&) {
    }
    try {
        expected = std::stoull(text);
    } catch (const std::logic_error&) {
    }
    Require(value == expected, "the standard library's value");
}

}  // namespace
}  // namespace updater

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::wstring text = updater::UnitsOfText(updater::TextOfInput(data, size));
    updater::CheckNumber<std::uint32_t>(text, updater::ParseUnsigned32, "stoul");
    updater::CheckNumber<std::uint64_t>(text, updater::ParseUnsigned64, "stoull");
    updater::CheckAgainstStandardLibrary(text);
    return 0;
}
