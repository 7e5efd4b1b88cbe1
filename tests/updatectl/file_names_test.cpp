#include "updatectl/file_names.h"
#include "fixtures/application_names.h"

#include <gmock/gmock.h>

#include <map>
#include <vector>

#include "updatectl/output.h"

namespace updater {
namespace {

TEST(FaultOfName, FindsNoneInNamesThatWindowsHolds) {
    const std::vector<std::wstring> names = {kExecutableName,
                                             L"a b.txt",
                                             L" leading",
                                             L".hidden",
                                             L"..x",
                                             L"a..b",
                                             L"CONSOLE",
                                             L"COM",
                                             L"COM0",
                                             L"COM10",
                                             L"LPTX",
                                             L"xNUL",
                                             L"NULx.txt",
                                             L"x.NUL",
                                             L"CON$",
                                             L"\u4E2D\u6587 \u5B57.ttf",
                                             L"\U0001F600",
                                             L"a'b`c!@#$%^&()+=[]{};,~",
                                             L"\u0085\u2028",
                                             L"~1",
                                             std::wstring(255, L'n')};
    for (const std::wstring& name : names) {
        EXPECT_EQ(FaultOfName(name), "") << PrintableText(name);
    }
}

TEST(FaultOfName, NamesTheFault) {
    const std::map<std::string, std::vector<std::wstring>> faults = {
        {"has a tab or a line break in its name", {L"\t", L"a\tb", L"a\n", L"\rb"}},
        {"has a character in its name that Windows does not allow",
         {L"\x01", L"a\x1F", std::wstring(1, L'\0'), L"a:b", L"C:x", L"x::$DATA", L"<", L">", L"\"",
          L"a|b", L"?", L"*", L"a\\b", L"a/b", L"a\\"}},
        {"has a name that ends in a dot or a space, which Windows leaves out",
         {L"", L".", L"..", L"...", L"x.", L"x ", L" ", L"x. .", L"nul."}},
        {"has the name of a Windows device",
         {L"CON", L"con", L"Prn", L"AUX", L"NUL", L"NUL.txt", L"nul.tar.gz", L"NUL .txt", L"COM1",
          L"com9.log", L"LPT1", L"lpt9.x", L"COM\u00B9", L"LPT\u00B3.txt", L"CONIN$", L"conout$",
          L"CONIN$.x"}},
        {"has a name that is not valid Unicode text",
         {L"a\xD800", L"\xDC00x", L"\xDC00\xD800", L"bytes\uFFFD"}},
        {"has a name of more than 255 characters", {std::wstring(256, L'n')}}};
    for (const auto& [fault, names] : faults) {
        for (const std::wstring& name : names) {
            EXPECT_EQ(FaultOfName(name), fault) << PrintableText(name);
        }
    }
}

TEST(FoldCase, MakesNamesOfTheSameFileEqual) {
    EXPECT_EQ(FoldCase(L"Data\\\u00FCber \u0436.TXT"), FoldCase(L"dATA\\\u00DCBER \u0416.txt"));
    EXPECT_EQ(FoldCase(L""), L"");
    // Letters that only a language takes for the same.
    EXPECT_NE(FoldCase(L"\u00DF"), FoldCase(L"ss"));
    EXPECT_NE(FoldCase(L"\u0131"), FoldCase(L"i"));
}

}  // namespace
}  // namespace updater
