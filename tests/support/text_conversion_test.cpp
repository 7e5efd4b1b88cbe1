#include "support/text_conversion.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace updater {

namespace {

struct TextPair {
    std::wstring wide;
    std::string utf8;
};

std::vector<TextPair> ValidTexts() {
    return {
        {L"", ""},
        {L"plain ASCII\r\n\t", "plain ASCII\r\n\t"},
        {L"\u00E9", "\xC3\xA9"},
        {L"\u07FF\u0800", "\xDF\xBF\xE0\xA0\x80"},
        {L"\u5347\u7EA7", "\xE5\x8D\x87\xE7\xBA\xA7"},
        {L"\uFFFF", "\xEF\xBF\xBF"},
        {L"\uFEFFmark", "\xEF\xBB\xBFmark"},
        {L"\U0001F600", "\xF0\x9F\x98\x80"},
        {L"\U0010FFFF", "\xF4\x8F\xBF\xBF"},
        {std::wstring(L"a\0b\0", 4), std::string("a\0b\0", 4)},
        {std::wstring(100000, L'\u4E2D') + L'.',
         [] {
             std::string text;
             for (int count = 0; count < 100000; ++count) {
                 text += "\xE4\xB8\xAD";
             }
             return text + '.';
         }()},
    };
}

TEST(TextConversion, ValidTextsConvertBothWays) {
    for (const TextPair& text : ValidTexts()) {
        EXPECT_EQ(WideToUtf8(text.wide), text.utf8);
        EXPECT_EQ(Utf8ToWide(text.utf8), text.wide);
    }
}

TEST(TextConversion, AnEmptyTextGivesAnEmptyText) {
    EXPECT_TRUE(WideToUtf8({}).empty());
    EXPECT_TRUE(Utf8ToWide({}).empty());
}

TEST(TextConversion, OnlyTheGivenPartOfALongerTextIsConverted) {
    const std::wstring wide = L"\u5347\u7EA7";
    const std::string utf8 = "\xE5\x8D\x87\xE7\xBA\xA7";
    EXPECT_EQ(WideToUtf8(std::wstring_view(wide).substr(0, 1)), "\xE5\x8D\x87");
    EXPECT_EQ(Utf8ToWide(std::string_view(utf8).substr(3)), L"\u7EA7");
}

TEST(WideToUtf8, EachLoneSurrogateBecomesTheReplacementCharacter) {
    const std::vector<TextPair> cases = {
        {L"\xD800", "\xEF\xBF\xBD"},
        {L"\xDFFF", "\xEF\xBF\xBD"},
        {L"a\xD83D"
         L"b",
         "a\xEF\xBF\xBD"
         "b"},
        {L"\xDE00\xD83D", "\xEF\xBF\xBD\xEF\xBF\xBD"},
        {L"\xD83D\xD83D\xDE00", "\xEF\xBF\xBD\xF0\x9F\x98\x80"},
    };
    for (const TextPair& text : cases) {
        EXPECT_EQ(WideToUtf8(text.wide), text.utf8);
    }
}

// How many replacement characters stand for an invalid sequence of several bytes differs between
// versions of the system, so those cases ask only for what is around them.
TEST(Utf8ToWide, InvalidBytesBecomeReplacementCharacters) {
    EXPECT_EQ(Utf8ToWide("\xFF"), L"\uFFFD");
    EXPECT_EQ(Utf8ToWide("a\x80z"), L"a\uFFFDz");

    const std::vector<std::string> sequences = {
        "\xE5\x8D",          // cut off
        "\xC0\xAF",          // overlong
        "\xED\xA0\x80",      // an encoded surrogate
        "\xF4\x90\x80\x80",  // beyond the last code point
        "\xBA\xA7\xFE\xFF",
    };
    for (const std::string& sequence : sequences) {
        const std::wstring wide = Utf8ToWide("a" + sequence + "z");
        ASSERT_GE(wide.size(), 3U);
        EXPECT_EQ(wide, L'a' + std::wstring(wide.size() - 2, L'\uFFFD') + L'z');
    }
}

}  // namespace

}  // namespace updater
