#include "support/extended_length_path.h"

#include <gtest/gtest.h>

#include <string>

#include "support/text_conversion.h"

namespace updater {
namespace {

struct PathForms {
    std::wstring ordinary;
    std::wstring extended;
};

TEST(ExtendedLengthPath, AndOrdinaryPathLeadToEachOther) {
    const PathForms cases[] = {
        {L"C:\\", L"\\\\?\\C:\\"},
        {L"c:\\Program Files\\App", L"\\\\?\\c:\\Program Files\\App"},
        {L"Z:\\\u7A0B\u5E8F\\x.", L"\\\\?\\Z:\\\u7A0B\u5E8F\\x."},
        {L"\\\\server\\share", L"\\\\?\\UNC\\server\\share"},
        {L"\\\\s", L"\\\\?\\UNC\\s"},
        {L"\\\\server\\share\\App\\", L"\\\\?\\UNC\\server\\share\\App\\"},
        {L"C:\\" + std::wstring(32000, L'x'), L"\\\\?\\C:\\" + std::wstring(32000, L'x')},
    };
    for (const PathForms& forms : cases) {
        EXPECT_EQ(ExtendedLengthPath(forms.ordinary).native(), forms.extended);
        EXPECT_EQ(OrdinaryPath(forms.extended).native(), forms.ordinary);
    }
}

// The system takes such a path as it stands: a slash would be part of a name.
TEST(ExtendedLengthPath, HasBackslashesOnly) {
    EXPECT_EQ(ExtendedLengthPath(L"C:/App/data/x").native(), L"\\\\?\\C:\\App\\data\\x");
    EXPECT_EQ(ExtendedLengthPath(L"//server/share/x").native(), L"\\\\?\\UNC\\server\\share\\x");
}

TEST(ExtendedLengthPath, OfEveryOtherFormIsThePathItself) {
    for (const wchar_t* path :
         {L"", L"x", L"data\\x", L"..\\x", L"\\x", L"C:", L"C:x", L"C:..\\x", L"1:\\x", L"@:\\x",
          L"[:\\x", L"`:\\x", L"{:\\x", L"\\\\", L"\\\\?\\C:\\x", L"\\\\?\\UNC\\server\\share",
          L"\\\\.\\C:\\x", L"\\\\?\\Volume{0A1B}\\x", L"x/y"}) {
        EXPECT_EQ(ExtendedLengthPath(path).native(), path) << WideToUtf8(path);
    }
}

TEST(OrdinaryPath, OfEveryOtherFormIsThePathItself) {
    for (const wchar_t* path : {L"", L"x", L"C:\\x", L"\\\\server\\share", L"\\\\?\\", L"\\\\?\\C:",
                                L"\\\\?\\C:x", L"\\\\?\\Volume{0A1B}\\x", L"\\\\.\\C:\\x",
                                L"\\\\?\\UNC", L"//?/C:/x", L"\\\\?\\unc\\server\\share"}) {
        EXPECT_EQ(OrdinaryPath(path).native(), path) << WideToUtf8(path);
    }
}

}  // namespace
}  // namespace updater
