#include "snapshot/inventory_entry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <string_view>

#include "fixtures/application_names.h"
#include "fixtures/raised_errors.h"
#include "support/text_conversion.h"

namespace updater {
namespace {

using namespace std::string_literals;

struct LineCase {
    std::string line;
    std::string path;
    std::string digest;
};

void ExpectSplit(std::initializer_list<LineCase> cases) {
    for (const auto& [line, path, digest] : cases) {
        SCOPED_TRACE(testing::PrintToString(line.substr(0, 40)));
        const InventoryEntry entry = ParseInventoryLine(line);
        EXPECT_EQ(entry.path, path);
        EXPECT_EQ(entry.digest, digest);
    }
}

TEST(InventoryLine, IsSplitAtItsFirstTab) {
    ExpectSplit({
        {"app/core.dll\tabc", "app/core.dll", "abc"},
        {"a b\tabc", "a b", "abc"},
        {"a\tb\tc", "a", "b\tc"},
        {"a\t\tc", "a", "\tc"},
        {"a\t abc ", "a", " abc "},
        {"\tabc", "", "abc"},
        {"a\t", "a", ""},
        {"\t", "", ""},
        {"\xEF\xBB\xBF"s + "a\tabc", "\xEF\xBB\xBF"s + "a", "abc"},
        {"\xFF\xFE\tabc", "\xFF\xFE", "abc"},
        {"a\0b\tc\0d"s, "a\0b"s, "c\0d"s},
        {std::string(1'000'000, 'p') + '\t' + std::string(1'000'000, 'd'),
         std::string(1'000'000, 'p'), std::string(1'000'000, 'd')},
    });
}

TEST(InventoryLine, LosesExactlyOneCarriageReturnAtItsEnd) {
    ExpectSplit({
        {"a\tb\r", "a", "b"},
        {"a\tb\r\r", "a", "b\r"},
        {"a\tb\r ", "a", "b\r "},
        {"a\r\tb\r", "a\r", "b"},
        {"\ra\tb", "\ra", "b"},
        {"a\t\r", "a", ""},
        {"a\t\r\r\r", "a", "\r\r"},
    });
}

TEST(InventoryLine, IsRefusedWithoutATab) {
    for (const std::string& line :
         {""s, "\r"s, "\r\r"s, " "s, "app/core.dll"s, "app/core.dll abc"s, "app/core.dll\\tabc"s,
          "\0"s, "a\vb"s, std::string(1'000'000, 'x')}) {
        SCOPED_TRACE(testing::PrintToString(line.substr(0, 40)));
        EXPECT_THAT([&line] { ParseInventoryLine(line); },
                    RaisesError("Invalid program inventory"));
    }
}

constexpr char kRooted[] = "Invalid program inventory path";
constexpr char kTraversal[] = "Invalid program inventory traversal";

using Paths = std::initializer_list<std::wstring_view>;

void ExpectRefused(const char* message, Paths paths) {
    for (const std::wstring_view path : paths) {
        SCOPED_TRACE(WideToUtf8(path));
        EXPECT_THAT([path] { CheckInventoryPath(path); }, RaisesError(message));
    }
}

void ExpectAccepted(Paths paths) {
    for (const std::wstring_view path : paths) {
        SCOPED_TRACE(WideToUtf8(path));
        EXPECT_NO_THROW(CheckInventoryPath(path));
    }
}

TEST(InventoryPath, IsRefusedWithADriveWhetherASeparatorFollowsOrNot) {
    ExpectRefused(kRooted, {L"C:\\x", L"c:\\x", L"C:/x", L"C:x", L"c:x", L"C:", L"a:", L"z:",
                            L"A:/", L"Z:x", L"a:b", L"C:\\\\x", L"C:\u4E2D", L"C:..."});
}

TEST(InventoryPath, IsRefusedWithADevicePrefix) {
    ExpectRefused(kRooted, {L"\\\\?\\C:\\x", L"//?/C:/x", L"\\/?\\C:\\x", L"/\\?/C:/x", L"\\\\?\\",
                            L"//?/", L"\\\\?\\\\x", L"\\\\?\\UNC\\server\\share\\x"});
    ExpectRefused(
        kRooted, {L"\\\\.\\pipe\\x", L"//./pipe/x", L"/\\./x", L"\\\\.\\", L"//./", L"\\\\.\\\\x"});
    ExpectRefused(
        kRooted, {L"\\?\?\\C:\\x", L"/?\?/C:/x", L"\\?\?/C:\\x", L"/?\?\\x", L"\\?\?\\", L"/?\?/"});
}

TEST(InventoryPath, IsRefusedWithAShareAlsoOneThatAlmostNamesADevice) {
    ExpectRefused(kRooted, {L"\\\\server\\share\\x", L"//server/share/x", L"\\/server\\share",
                            L"/\\server/share", L"\\\\server", L"//s", L"\\\\s\\", L"\\\\ ",
                            L"\\\\\u4E2D\u6587\\x", L"\\\\C:\\x"});
    ExpectRefused(
        kRooted, {L"\\\\?", L"\\\\.", L"\\\\?x", L"\\\\.x", L"\\\\?\?\\x", L"\\\\..", L"//...\\x"});
}

TEST(InventoryPath, IsRefusedWithAnElementOfTwoDots) {
    ExpectRefused(kTraversal, {L"..", L"..\\x", L"../x", L"app/../../x", L"a\\..\\b", L"a/../b",
                               L"a\\../b", L"a/..\\b", L"a/../", L"a//..//b", L"./../x",
                               L".\\..\\x", L"...\\..\\x", L"a/./../b", L"\u4E2D\u6587/../x"});
}

TEST(InventoryPath, IsRefusedWithTwoDotsAtItsEnd) {
    ExpectRefused(kTraversal,
                  {L"a/..", L"a\\..", L"a\\\\..", L"./..", L"a/b/..", L"/..", L"///.."});
}

TEST(InventoryPath, IsRefusedWithTwoDotsAfterLeadingSeparatorsThatAreNoRootName) {
    ExpectRefused(kTraversal, {L"\\..", L"/../x", L"\\\\\\..\\x", L"\\?\?\\\\..\\x"});
}

TEST(InventoryPath, IsCheckedForARootBeforeItIsCheckedForTraversal) {
    ExpectRefused(kRooted,
                  {L"C:..", L"C:\\..\\x", L"\\\\..\\x", L"//../x", L"\\\\?\\..", L"\\?\?\\..\\x"});
}

TEST(InventoryPath, IsAcceptedWhenItIsRelative) {
    ExpectAccepted({L"", kExecutableName, L"data\\app.so", L"data/app.so", L"data\\a/b\\c",
                    L"a\\\\b", L"a//b", L"a/", L"a\\", L"\u4E2D\u6587 path/x", L"\uFEFFx"});
}

TEST(InventoryPath, IsAcceptedWithElementsOfOneDotOrThreeOrDotsInNames) {
    ExpectAccepted({L".", L"./x", L"a/./b", L"...", L"a\\...\\b", L"....", L"..a", L"a..", L"a..b",
                    L".. ", L" ..", L"x/.. /y", L".a"});
}

TEST(InventoryPath, IsAcceptedWithOneLeadingSeparatorOrThreeAndMore) {
    ExpectAccepted({L"\\", L"/", L"\\\\", L"//", L"\\/", L"\\x", L"/x", L"\\\\\\x", L"///x",
                    L"\\/\\x", L"\\\\\\\\server\\share", L"///server/share", L"\\\\\\?\\C:\\x",
                    L"\\C:\\x", L"/c:x"});
}

TEST(InventoryPath, IsAcceptedWithAColonThatNamesNoDrive) {
    ExpectAccepted({L"1:\\x", L":x", L"@:x", L"[:x", L"`:x", L"{:x", L"\u00E9:x", L"\uFF23:\\x",
                    L"CC:x", L"a\\C:\\x", L" C:\\x", L"name:stream"});
}

// The third of the device prefixes ends with its fourth character, and no separator follows it.
TEST(InventoryPath, IsAcceptedWithQuestionMarksAndDotsThatNameNoDevice) {
    ExpectAccepted({L"\\?\?\\\\", L"\\?\?\\\\x", L"/?\?//x", L"\\?\?\\/C:"});
    ExpectAccepted({L"\\?", L"\\?\?", L"\\?\\", L"\\?\\C:\\x", L"\\.\\x", L"\\?\?x", L"\\?\?x\\",
                    L"\\?.\\x", L"\\.?\\x", L"\\..?\\x", L"?\?\\C:\\x", L"?\\x", L"\\?\?\?\\x"});
}

struct AppendCase {
    std::wstring_view directory;
    std::wstring_view path;
    std::wstring_view expected;
};

void ExpectAppended(std::initializer_list<AppendCase> cases) {
    for (const auto& [directory, path, expected] : cases) {
        SCOPED_TRACE(WideToUtf8(directory) + " with " + WideToUtf8(path));
        EXPECT_EQ(AppendInventoryPath(directory, path), expected);
    }
}

TEST(InventoryPath, IsAppendedToItsDirectoryWithOneBackslash) {
    ExpectAppended({
        {L"C:\\app", L"x", L"C:\\app\\x"},
        {L"C:\\app", L"a/b\\c", L"C:\\app\\a/b\\c"},
        {L"C:\\app", L"a\\", L"C:\\app\\a\\"},
        {L"C:/app", L"x", L"C:/app\\x"},
        {L"C:app", L"x", L"C:app\\x"},
        {L"app", L"x", L"app\\x"},
        {L"\\\\server\\share", L"x", L"\\\\server\\share\\x"},
        {L"\\\\server", L"x", L"\\\\server\\x"},
        {L"\\\\?\\C:\\app", L"x", L"\\\\?\\C:\\app\\x"},
        {L"1:", L"x", L"1:\\x"},
        {L"\u4E2D\u6587 app", L"\u6570\u636E x", L"\u4E2D\u6587 app\\\u6570\u636E x"},
    });
}

TEST(InventoryPath, IsAppendedWithoutABackslashToADriveASeparatorOrNothing) {
    ExpectAppended({
        {L"", L"x", L"x"},
        {L"C:", L"x", L"C:x"},
        {L"c:", L"a\\b", L"c:a\\b"},
        {L"C:\\", L"x", L"C:\\x"},
        {L"C:\\app\\", L"x", L"C:\\app\\x"},
        {L"C:\\app/", L"x", L"C:\\app/x"},
        {L"\\\\server\\share\\", L"x", L"\\\\server\\share\\x"},
        {L"\\", L"x", L"\\x"},
    });
}

TEST(InventoryPath, ThatBeginsWithASeparatorKeepsOnlyTheDirectorysRootName) {
    ExpectAppended({
        {L"C:\\app", L"\\x", L"C:\\x"},
        {L"C:\\app", L"/x", L"C:/x"},
        {L"C:\\app\\", L"\\x\\y", L"C:\\x\\y"},
        {L"C:\\app", L"\\\\\\x", L"C:\\\\\\x"},
        {L"C:\\app", L"\\", L"C:\\"},
        {L"C:", L"/x", L"C:/x"},
        {L"c:app", L"\\x", L"c:\\x"},
        {L"\\\\server\\share\\app", L"\\x", L"\\\\server\\x"},
        {L"//server/share", L"/x", L"//server/x"},
        {L"\\\\server", L"\\x", L"\\\\server\\x"},
        {L"\\\\?\\C:\\app", L"\\x", L"\\\\?\\x"},
        {L"\\\\.\\C:\\app", L"\\x", L"\\\\.\\x"},
        {L"\\??\\C:\\app", L"\\x", L"\\??\\x"},
        {L"\\??\\\\app", L"\\x", L"\\x"},
        {L"\\app", L"\\x", L"\\x"},
        {L"app", L"\\x", L"\\x"},
        {L"", L"/x", L"/x"},
    });
}

TEST(InventoryPath, ThatIsEmptyGivesTheDirectoryWithASeparatorAtItsEnd) {
    ExpectAppended({
        {L"C:\\app", L"", L"C:\\app\\"},
        {L"C:\\app\\", L"", L"C:\\app\\"},
        {L"C:\\app/", L"", L"C:\\app/"},
        {L"C:\\", L"", L"C:\\"},
        {L"app", L"", L"app\\"},
        {L"\\\\server\\share", L"", L"\\\\server\\share\\"},
        {L"\\\\server", L"", L"\\\\server\\"},
    });
}

}  // namespace
}  // namespace updater
