#include "support/number_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cwchar>
#include <iterator>
#include <limits>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "support/text_conversion.h"

namespace updater {

namespace {

using testing::ThrowsMessage;

struct NumberCase {
    std::wstring_view text;
    std::uint64_t value;
};

// Read the same way at any width.
constexpr NumberCase kCommonNumbers[] = {
    {L"0", 0},
    {L"42", 42},
    {L"+42", 42},
    {L"00000000000000000000000000042", 42},
    {L" 42", 42},
    {L" \t\n\v\f\r+42", 42},
    {L"\u300042", 42},
    {L"42 ", 42},
    {L"12abc", 12},
    {L"12 34", 12},
    {L"1,000", 1},
    {L"1.9", 1},
    {L"1e3", 1},
    {L"1'000", 1},
    {L"0x10", 0},
    {L"010", 10},
    {L"-0", 0},
    {L"12\U0001F600", 12},
    {std::wstring_view(L"7\0008", 3), 7},
};

constexpr std::wstring_view kTextsWithoutDigits[] = {
    L"",    L" ",   L"\t\n",   L"abc",     L"a12",    L"+",
    L"-",   L" +",  L" - ",    L"+-1",     L"-+1",    L"--1",
    L"++1", L"- 1", L"+ 1",    L",1",      L".5",     L"x10",
    L"$1",  L"_1",  L"\u4E00", L"\uFEFF1", L"\xD800", std::wstring_view(L"\0001", 2),
};

constexpr NumberCase kNumbersOf32Bits[] = {
    {L"4294967295", 4294967295U}, {L"-1", 4294967295U},          {L"-4294967295", 1},
    {L" -2 ", 4294967294U},       {L"04294967295", 4294967295U},
};

constexpr std::wstring_view kTextsBeyond32Bits[] = {
    L"4294967296",
    L"4294967300",
    L"+4294967296",
    L"-4294967296",
    L"42949672950",
    L" 4294967296xyz",
    L"9999999999",
    L"18446744073709551615",
    L"18446744073709551616",
    L"18446744078004518912",  // 2^64 + 2^32
    L"99999999999999999999999999999999999999999999",
};

constexpr NumberCase kNumbersOf64Bits[] = {
    {L"4294967296", 4294967296U},
    {L"18446744073709551615", std::numeric_limits<std::uint64_t>::max()},
    {L"-1", std::numeric_limits<std::uint64_t>::max()},
    {L"-18446744073709551615", 1},
    {L"9223372036854775808", std::uint64_t{1} << 63U},
};

constexpr std::wstring_view kTextsBeyond64Bits[] = {
    L"18446744073709551616", L"18446744073709551620",  L"-18446744073709551616",
    L"36893488147419103232", L"184467440737095516150", L"99999999999999999999999999999999999999",
};

TEST(ParseUnsigned32, ReadsTheNumberAtTheStartOfTheText) {
    for (const NumberCase& number : kCommonNumbers) {
        EXPECT_EQ(ParseUnsigned32(number.text), number.value) << WideToUtf8(number.text);
    }
    for (const NumberCase& number : kNumbersOf32Bits) {
        EXPECT_EQ(ParseUnsigned32(number.text), number.value) << WideToUtf8(number.text);
    }
}

TEST(ParseUnsigned32, ATextWithoutDigitsIsAnInvalidArgument) {
    for (const std::wstring_view text : kTextsWithoutDigits) {
        EXPECT_THAT([text] { ParseUnsigned32(text); },
                    ThrowsMessage<std::invalid_argument>("invalid stoul argument"))
            << WideToUtf8(text);
    }
}

TEST(ParseUnsigned32, ANumberBeyond32BitsIsOutOfRange) {
    for (const std::wstring_view text : kTextsBeyond32Bits) {
        EXPECT_THAT([text] { ParseUnsigned32(text); },
                    ThrowsMessage<std::out_of_range>("stoul argument out of range"))
            << WideToUtf8(text);
    }
}

TEST(ParseUnsigned64, ReadsTheNumberAtTheStartOfTheText) {
    for (const NumberCase& number : kCommonNumbers) {
        EXPECT_EQ(ParseUnsigned64(number.text), number.value) << WideToUtf8(number.text);
    }
    for (const NumberCase& number : kNumbersOf64Bits) {
        EXPECT_EQ(ParseUnsigned64(number.text), number.value) << WideToUtf8(number.text);
    }
}

TEST(ParseUnsigned64, ATextWithoutDigitsIsAnInvalidArgument) {
    for (const std::wstring_view text : kTextsWithoutDigits) {
        EXPECT_THAT([text] { ParseUnsigned64(text); },
                    ThrowsMessage<std::invalid_argument>("invalid stoull argument"))
            << WideToUtf8(text);
    }
}

TEST(ParseUnsigned64, ANumberBeyond64BitsIsOutOfRange) {
    for (const std::wstring_view text : kTextsBeyond64Bits) {
        EXPECT_THAT([text] { ParseUnsigned64(text); },
                    ThrowsMessage<std::out_of_range>("stoull argument out of range"))
            << WideToUtf8(text);
    }
}

// What the system's own conversion, which the standard functions are made of, says of a text.
template <typename Unsigned>
std::string OutcomeOfSystem(const std::wstring& text,
                            Unsigned (*convert)(const wchar_t*, wchar_t**, int)) {
    wchar_t* end = nullptr;
    errno = 0;
    const Unsigned value = convert(text.c_str(), &end, 10);
    if (end == text.c_str()) {
        return "invalid";
    }
    return errno == ERANGE ? "out of range" : std::to_string(value);
}

template <typename Unsigned>
std::string OutcomeOfParser(const std::wstring& text, Unsigned (*parse)(std::wstring_view)) {
    try {
        return std::to_string(parse(text));
    } catch (const std::invalid_argument&) {
        return "invalid";
    } catch (const std::out_of_range&) {
        return "out of range";
    }
}

// The runtime library of Windows takes these for digits as well; the standard knows only 0 to 9.
bool IsDigitOfAnotherScript(wchar_t character) {
    return character > 0x7F && OutcomeOfSystem({character}, &std::wcstoul) != "invalid";
}

std::vector<std::wstring> AllTexts() {
    std::vector<std::wstring> texts;
    for (const auto& some : {std::span<const std::wstring_view>(kTextsWithoutDigits),
                             std::span<const std::wstring_view>(kTextsBeyond32Bits),
                             std::span<const std::wstring_view>(kTextsBeyond64Bits)}) {
        texts.insert(texts.end(), some.begin(), some.end());
    }
    for (const auto& some : {std::span<const NumberCase>(kCommonNumbers),
                             std::span<const NumberCase>(kNumbersOf32Bits),
                             std::span<const NumberCase>(kNumbersOf64Bits)}) {
        std::transform(some.begin(), some.end(), std::back_inserter(texts),
                       [](const NumberCase& number) { return std::wstring(number.text); });
    }
    // Every character once in each place.
    for (unsigned unit = 1; unit < 0x10000; ++unit) {
        const auto character = static_cast<wchar_t>(unit);
        if (!IsDigitOfAnotherScript(character)) {
            texts.push_back({character, L'7'});
            texts.push_back({L'7', character});
        }
    }
    return texts;
}

TEST(ParseUnsigned, AgreesWithTheSystemsConversions) {
    static_assert(sizeof(unsigned long) == sizeof(std::uint32_t));
    for (const std::wstring& text : AllTexts()) {
        EXPECT_EQ(OutcomeOfParser(text, ParseUnsigned32), OutcomeOfSystem(text, &std::wcstoul))
            << WideToUtf8(text);
        EXPECT_EQ(OutcomeOfParser(text, ParseUnsigned64), OutcomeOfSystem(text, &std::wcstoull))
            << WideToUtf8(text);
    }
}

}  // namespace

}  // namespace updater
