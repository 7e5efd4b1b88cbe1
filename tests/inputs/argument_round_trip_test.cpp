#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "fixtures/programs/program_report.h"
#include "fixtures/quoted_arguments.h"
#include "fixtures/system_splitting.h"
#include "fixtures/temporary_directory.h"
#include "fuzz/oracle/command_line_splitting.h"
#include "inputs/random_source.h"
#include "inputs/random_text.h"
#include "support/argument_quoting.h"
#include "support/process_utilities.h"

namespace updater {

namespace {

constexpr std::size_t kTexts = 100000;
constexpr std::size_t kTextsThroughProcesses = 200;

// The system takes no command line of more characters.
constexpr std::size_t kCommandLineLimit = 32000;

// As many texts as stand on one command line.
std::vector<std::wstring> RandomArguments(RandomSource& random, std::size_t most) {
    std::vector<std::wstring> arguments(1 + RandomBelow(random, most));
    for (std::wstring& argument : arguments) {
        argument = OneIn(random, 400) ? RandomArgument(random, kLongText) : RandomArgument(random);
    }
    return arguments;
}

std::vector<std::wstring> ArgumentsOfChildProcess(const std::vector<std::wstring>& arguments) {
    const TemporaryDirectory directory;
    const std::filesystem::path report = directory.path / L"report";
    const std::filesystem::path program = ReportingProgram();
    LaunchProcess(program, ReportArguments(report, 0) + JoinQuoted(arguments), directory.path,
                  LaunchWait::UntilExit);
    return ReadProgramReport(report).arguments;
}

// A third of the characters splitting has no rule for, so that quotes and backslashes meet often;
// two quotes that touch are left out, because nothing says what they mean there.
std::wstring RandomCommandLine(RandomSource& random) {
    constexpr std::wstring_view kCharacters = L"\\\\\\\"\"  \tab\n\xD800";
    std::wstring line;
    const std::size_t length = RandomBelow(random, 40);
    while (line.size() < length) {
        const wchar_t character = OneOf(random, kCharacters);
        if (character != L'"' || !line.ends_with(L'"')) {
            line.push_back(character);
        }
    }
    return line;
}

TEST(ArgumentInputs, RandomTextsComeBackFromTheSystemsSplitting) {
    RandomSource random = MakeRandomSource("splitting");
    std::ptrdiff_t longTexts = 0;
    for (std::size_t done = 0; done < kTexts;) {
        const std::vector<std::wstring> arguments = RandomArguments(random, 8);
        std::vector<std::wstring> tokens = SplitBySystem(L"updater.exe" + JoinQuoted(arguments));
        tokens.erase(tokens.begin());
        ASSERT_EQ(tokens, arguments) << "after " << done << " texts";
        done += arguments.size();
        longTexts +=
            std::count_if(arguments.begin(), arguments.end(),
                          [](const std::wstring& text) { return text.size() == kLongText; });
    }
    EXPECT_GT(longTexts, 100);
}

TEST(ArgumentInputs, RandomTextsReachAChildProcessUnchanged) {
    RandomSource random = MakeRandomSource("child process");
    std::size_t done = 0;
    while (done < kTextsThroughProcesses) {
        std::vector<std::wstring> arguments(8);
        for (std::wstring& argument : arguments) {
            argument = RandomArgument(random);
        }
        ASSERT_EQ(ArgumentsOfChildProcess(arguments), arguments) << "after " << done << " texts";
        done += arguments.size();
    }
}

TEST(ArgumentInputs, LongTextsReachAChildProcessUnchanged) {
    RandomSource random = MakeRandomSource("long, child process");
    const std::vector<std::wstring> texts = {
        RandomUnits(random, kLongText),        RandomUnits(random, kLongText),
        std::wstring(kLongText, L' '),         std::wstring(kLongText, L'\xD800'),
        RandomArgument(random, kLongText / 2), std::wstring(kLongText / 2, L'\\'),
        std::wstring(kLongText / 2, L'"'),     std::wstring(kLongText / 4, L'\\') + L'"',
    };
    for (const std::wstring& text : texts) {
        ASSERT_LT(QuoteArgument(text).size(), kCommandLineLimit);
        EXPECT_EQ(ArgumentsOfChildProcess({text}), std::vector{text});
    }
}

TEST(ArgumentInputs, TheFuzzersSplittingIsTheSystems) {
    RandomSource random = MakeRandomSource("fuzzers' splitting");
    for (int round = 0; round < 50000; ++round) {
        const std::wstring line = RandomCommandLine(random);
        std::vector<std::wstring> tokens = SplitBySystem(L"updater.exe " + line);
        tokens.erase(tokens.begin());
        ASSERT_EQ(SplitArguments(line), tokens) << testing::PrintToString(line);
    }
}

}  // namespace

}  // namespace updater
