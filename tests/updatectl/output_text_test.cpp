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

TEST(ProgressText, TellsTheCountOnceItIsKnown) {
    EXPECT_EQ(ProgressText("Reading files", 3, 10, 2), "Reading files: 3 of 10, 2 s");
    EXPECT_EQ(ProgressText("Removing", 0, 0, 61), "Removing: 61 s");
}

}  // namespace
}  // namespace updater
