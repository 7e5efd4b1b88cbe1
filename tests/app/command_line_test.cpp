#include "app/command_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fixtures/application_names.h"
#include "fixtures/doubles/scoped_command_line.h"
#include "support/text_conversion.h"

namespace updater {
namespace {

struct CommandLineCase {
    std::wstring commandLine;
    UpdaterArguments expected;
};

void ExpectParsed(const std::vector<CommandLineCase>& cases) {
    for (const auto& [commandLine, expected] : cases) {
        SCOPED_TRACE(WideToUtf8(commandLine.substr(0, 100)));
        [[maybe_unused]] const ScopedCommandLine scope(commandLine);
        EXPECT_EQ(ParseUpdaterArguments(), expected);
    }
}

TEST(CommandLine, OfTheProgramAloneGivesNoOptions) {
    ExpectParsed({
        {L"updater.exe", {}},
        {L"updater.exe   ", {}},
        {L"\"C:\\Program Files\\\u5E94\u7528\\" IDENTITY_UPDATER L"\"", {}},
        {L"--worker", {}},
    });
}

TEST(CommandLine, LeavesTheProgramsOwnPathOutWhateverItLooksLike) {
    ExpectParsed({
        {L"--worker --job-dir D", {{L"--job-dir", L"D"}}},
        {L"--job-dir --worker", {{L"--worker", L"1"}}},
    });
}

TEST(CommandLine, IsSplitByTheShellsRules) {
    ExpectParsed({
        {L"u --job-dir \"C:\\\u4E2D\u6587 path\\\\\" --broker",
         {{L"--broker", L"1"}, {L"--job-dir", L"C:\\\u4E2D\u6587 path\\"}}},
        {L"u --version \"a\\\"b\"", {{L"--version", L"a\"b"}}},
        {L"u --job-dir C:\\a\\b", {{L"--job-dir", L"C:\\a\\b"}}},
        {L"u \t --job-dir \t D", {{L"--job-dir", L"D"}}},
        {L"u \"--broker\"", {{L"--broker", L"1"}}},
        {L"u \"--broker \" value", {{L"--broker ", L"value"}}},
        {L"u \"two words\" value", {{L"two words", L"value"}}},
        {L"u --job-dir \"\" --worker", {{L"--job-dir", L""}, {L"--worker", L"1"}}},
        {L"u \"\" value", {{L"", L"value"}}},
        {L"\"a b\\u.exe\" --job-dir a\" \"b", {{L"--job-dir", L"a b"}}},
    });
}

TEST(CommandLine, PassesTextThroughUnchanged) {
    const std::wstring longValue(30'000, L'x');
    ExpectParsed({
        {L"u --job-dir \xD83D\xDE00", {{L"--job-dir", L"\xD83D\xDE00"}}},
        {L"u --job-dir a\xD800z", {{L"--job-dir", L"a\xD800z"}}},
        {L"u --job-dir " + longValue, {{L"--job-dir", longValue}}},
    });
}

TEST(CommandLine, ReleasesTheSplitTokens) {
    HLOCAL list = nullptr;
    std::vector<HLOCAL> released;
    const ScopedReplacement splitting(
        doubles::CommandLineToArgvW, [&list](LPCWSTR commandLine, int* count) {
            LPWSTR* const tokens = CommandLineToArgvW(commandLine, count);
            list = tokens;
            return tokens;
        });
    const ScopedReplacement releasing(doubles::LocalFree, [&released](HLOCAL memory) {
        released.push_back(memory);
        return LocalFree(memory);
    });
    for (const wchar_t* commandLine : {L"u", L"u --worker --job-dir D"}) {
        released.clear();
        const ScopedCommandLine scope(commandLine);
        ParseUpdaterArguments();
        ASSERT_NE(list, nullptr);
        EXPECT_THAT(released, testing::ElementsAre(list));
    }
}

}  // namespace
}  // namespace updater
