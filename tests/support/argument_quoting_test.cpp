#include "support/argument_quoting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "fixtures/programs/program_report.h"
#include "fixtures/quoted_arguments.h"
#include "fixtures/system_splitting.h"
#include "fixtures/temporary_directory.h"
#include "support/process_utilities.h"

namespace updater {

namespace {

using testing::ElementsAreArray;

struct QuotingCase {
    std::wstring_view argument;
    std::wstring_view quoted;
};

constexpr QuotingCase kQuotingCases[] = {
    {L"", LR"("")"},
    {L"plain", LR"("plain")"},
    {L" ", LR"(" ")"},
    {LR"(C:\App\)", LR"("C:\App\\")"},
    {LR"(a"b)", LR"("a\"b")"},
    {LR"(C:\x y)", LR"("C:\x y")"},
    {LR"(ends in two\\)", LR"("ends in two\\\\")"},
    {LR"(\)", LR"("\\")"},
    {LR"(")", LR"("\"")"},
    {LR"(\")", LR"("\\\"")"},
    {LR"(\\")", LR"("\\\\\"")"},
    {LR"("\)", LR"("\"\\")"},
    {LR"(\\server\share\)", LR"("\\server\share\\")"},
    {LR"(a\\b\c)", LR"("a\\b\c")"},
    {LR"(a\\"b\"c\)", LR"("a\\\\\"b\\\"c\\")"},
    {LR"("quoted")", LR"("\"quoted\"")"},
    {LR"(""")", LR"("\"\"\"")"},
    {LR"(\\\\\\\\"\\\\)", LR"("\\\\\\\\\\\\\\\\\"\\\\\\\\")"},
};

// Texts that take part in the round trips only.
constexpr std::wstring_view kFurtherArguments[] = {
    L"\t",
    L"a\tb\nc\rd\ve",
    L"/DIR=\"C:\\Program Files\\\u4E34\u65F6\\\" /LOG=x",
    L"--job-dir",
    L"'single'",
    L"%PATH% ^& | < > ! * ?",
    L"\u5347\u7EA7 \u3000 \U0001F600",
    L"lone \xD83D and \xDE00 surrogates",
    L"\uFEFFmark",
    L"\x01\x1F\x7F",
};

std::vector<std::wstring> AllArguments() {
    std::vector<std::wstring> arguments(std::begin(kFurtherArguments), std::end(kFurtherArguments));
    std::transform(std::begin(kQuotingCases), std::end(kQuotingCases),
                   std::back_inserter(arguments),
                   [](const QuotingCase& quoting) { return std::wstring(quoting.argument); });
    arguments.push_back(std::wstring(2000, L'\\') + std::wstring(2000, L'"') +
                        std::wstring(2001, L'\\'));
    return arguments;
}

TEST(QuoteArgument, GivesExactlyThisText) {
    for (const QuotingCase& quoting : kQuotingCases) {
        EXPECT_EQ(QuoteArgument(quoting.argument), quoting.quoted);
    }
}

TEST(QuoteArgument, AnEmptyTextGivesTwoQuoteCharacters) {
    EXPECT_EQ(QuoteArgument(L""), L"\"\"");
}

TEST(QuoteArgument, ATextEndingInTwoBackslashesGivesFourBeforeTheClosingQuote) {
    EXPECT_EQ(QuoteArgument(L"x\\\\"), L"\"x\\\\\\\\\"");
}

TEST(QuoteArgument, TheSystemsSplittingGivesEachArgumentBack) {
    for (const std::wstring& argument : AllArguments()) {
        EXPECT_THAT(SplitBySystem(L"program " + QuoteArgument(argument)),
                    ElementsAreArray({std::wstring(L"program"), argument}));
    }
}

TEST(QuoteArgument, TheSystemsSplittingGivesAWholeCommandLineBack) {
    std::vector<std::wstring> expected = AllArguments();
    const std::wstring commandLine = L"program" + JoinQuoted(expected);
    expected.insert(expected.begin(), L"program");
    EXPECT_EQ(SplitBySystem(commandLine), expected);
}

TEST(QuoteArgument, AChildProcessReceivesExactlyTheArguments) {
    const TemporaryDirectory directory;
    const std::filesystem::path report = directory.path / L"report";
    const std::vector<std::wstring> arguments = AllArguments();
    ASSERT_EQ(LaunchProcess(ReportingProgram(), ReportArguments(report, 0) + JoinQuoted(arguments),
                            directory.path, LaunchWait::UntilExit),
              0U);
    EXPECT_EQ(ReadProgramReport(report).arguments, arguments);
}

}  // namespace

}  // namespace updater
