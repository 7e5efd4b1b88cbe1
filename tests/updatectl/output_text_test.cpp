#include <gmock/gmock.h>

#include "support/text_conversion.h"
#include "updatectl/output.h"
#include "updatectl/progress_line.h"

namespace updater {
namespace {

TEST(PrintableText, ShowsWhatNobodyWouldSeeAsItsCode) {
    EXPECT_EQ(PrintableText(L"data\\\u4E2D\u6587 \U0001F600.txt"),
              WideToUtf8(L"data\\\u4E2D\u6587 \U0001F600.txt"));
    EXPECT_EQ(PrintableText(L"a\tb\nc\x1B[31m\x7F\u0085"),
              "a<U+0009>b<U+000A>c<U+001B>[31m<U+007F><U+0085>");
    EXPECT_EQ(PrintableText(L"\uFEFFx\u202Egpj.exe\u200B"), "<U+FEFF>x<U+202E>gpj.exe<U+200B>");
    EXPECT_EQ(PrintableText(L"\xD83D|\xDE00\xD83D"), "<U+D83D>|<U+DE00><U+D83D>");
    EXPECT_EQ(PrintableText(std::wstring(1, L'\0')), "<U+0000>");
    EXPECT_EQ(PrintableText(L""), "");
}

// The first and the last character of each range that shows as codes, and its neighbours, which
// show as themselves.
TEST(PrintableText, ShowsNoMoreThanThatAsCodes) {
    struct Bound {
        wchar_t invisible;
        const char* code;
        wchar_t neighbour;
    };
    constexpr Bound kBounds[] = {
        {0x001F, "<U+001F>", 0x0020}, {0x007F, "<U+007F>", 0x007E}, {0x009F, "<U+009F>", 0x00A0},
        {0x200B, "<U+200B>", 0x200A}, {0x200F, "<U+200F>", 0x2010}, {0x2028, "<U+2028>", 0x2027},
        {0x202E, "<U+202E>", 0x202F}, {0x2066, "<U+2066>", 0x2065}, {0x2069, "<U+2069>", 0x206A},
        {0xFEFF, "<U+FEFF>", 0xFEFE}, {0xFEFF, "<U+FEFF>", 0xFF00},
    };
    for (const Bound& bound : kBounds) {
        EXPECT_EQ(PrintableText({&bound.invisible, 1}), bound.code);
        EXPECT_EQ(PrintableText({&bound.neighbour, 1}), WideToUtf8({&bound.neighbour, 1}));
    }
    EXPECT_EQ(PrintableText(L"\U0001F600"), WideToUtf8(L"\U0001F600"));
}

TEST(ProgressText, TellsTheCountOnceItIsKnown) {
    EXPECT_EQ(ProgressText("Reading files", 3, 10, 2), "Reading files: 3 of 10, 2 s");
    EXPECT_EQ(ProgressText("Reading files", 0, 1, 2), "Reading files: 0 of 1, 2 s");
    EXPECT_EQ(ProgressText("Removing", 0, 0, 61), "Removing: 61 s");
}

}  // namespace
}  // namespace updater
