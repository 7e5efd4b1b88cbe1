#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>

#include "inputs/random_source.h"
#include "support/number_text.h"

namespace updater {

namespace {

static_assert(std::numeric_limits<unsigned long>::digits == 32,
              "the standard library's conversion is that of 32 bits");

// White space in front, signs, digits around the limits and something behind. The digits of other
// scripts are left out: only some standard libraries take them for digits.
std::wstring RandomNumberText(RandomSource& random) {
    constexpr std::wstring_view kBefore = L" \t\n\v\f\r\u00A0\u0085\u1680\u2003\u2028\u3000\uFEFFx";
    constexpr std::wstring_view kSigns = L"+-";
    std::wstring text;
    while (OneIn(random, 3)) {
        text.push_back(OneOf(random, kBefore));
    }
    while (OneIn(random, 3)) {
        text.push_back(OneOf(random, kSigns));
    }
    if (OneIn(random, 4)) {
        constexpr std::uint64_t kLimit = std::uint64_t{1} << 32U;
        text += std::to_wstring(kLimit - 5 + RandomBelow(random, 10));
    } else if (OneIn(random, 4)) {
        constexpr std::uint64_t kLimit = std::numeric_limits<std::uint64_t>::max();
        text += std::to_wstring(kLimit - RandomBelow(random, 20));
    }
    for (std::size_t digits = RandomBelow(random, OneIn(random, 4) ? 40 : 4); digits > 0;
         --digits) {
        text.push_back(static_cast<wchar_t>(L'0' + RandomBelow(random, 10)));
    }
    while (OneIn(random, 3)) {
        text.push_back(OneOf(random, kBefore));
    }
    return text;
}

// The number as text, or the kind of failure.
template <typename Convert>
std::string Outcome(Convert convert) {
    try {
        return std::to_string(convert());
    } catch (const std::invalid_argument&) {
        return "no number";
    } catch (const std::out_of_range&) {
        return "out of range";
    }
}

TEST(NumberInputs, RandomTextsGiveWhatTheStandardLibraryGives) {
    RandomSource random = MakeRandomSource("numbers");
    for (int round = 0; round < 50000; ++round) {
        const std::wstring text = RandomNumberText(random);
        ASSERT_EQ(Outcome([&] { return ParseUnsigned32(text); }),
                  Outcome([&] { return std::stoul(text); }))
            << testing::PrintToString(text);
        ASSERT_EQ(Outcome([&] { return ParseUnsigned64(text); }),
                  Outcome([&] { return std::stoull(text); }))
            << testing::PrintToString(text);
    }
}

}  // namespace

}  // namespace updater
