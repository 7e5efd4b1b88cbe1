// How the system's conversions are called: what they make of other flags differs between systems.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fixtures/doubles/windows_doubles.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

TEST(TextConversionCalls, AskForTheLengthFirstAndReplaceWhatIsInvalid) {
    std::vector<int> rooms;
    const ScopedReplacement wide(
        doubles::MultiByteToWideChar,
        [&](UINT codePage, DWORD flags, LPCCH text, int bytes, LPWSTR result, int room) {
            EXPECT_EQ(codePage, static_cast<UINT>(CP_UTF8));
            EXPECT_EQ(flags, 0U);
            rooms.push_back(room);
            return MultiByteToWideChar(codePage, flags, text, bytes, result, room);
        });
    const ScopedReplacement narrow(
        doubles::WideCharToMultiByte,
        [&](UINT codePage, DWORD flags, LPCWCH text, int units, LPSTR result, int room,
            LPCCH defaultCharacter, LPBOOL usedDefault) {
            EXPECT_EQ(codePage, static_cast<UINT>(CP_UTF8));
            EXPECT_EQ(flags, 0U);
            EXPECT_EQ(defaultCharacter, nullptr);
            EXPECT_EQ(usedDefault, nullptr);
            rooms.push_back(room);
            return WideCharToMultiByte(codePage, flags, text, units, result, room, defaultCharacter,
                                       usedDefault);
        });
    EXPECT_EQ(Utf8ToWide("\xE4\xB8\xAD x"), L"\u4E2D x");
    EXPECT_EQ(WideToUtf8(L"\u4E2D x"), "\xE4\xB8\xAD x");
    EXPECT_EQ(rooms, (std::vector<int>{0, 3, 0, 5}));
}

}  // namespace

}  // namespace updater
