#include "updatectl/exclude_pattern.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

#include "support/text_conversion.h"
#include "updatectl/command_options.h"

namespace updater {
namespace {

struct MatchCase {
    const wchar_t* pattern;
    const wchar_t* path;
    bool matches;
};

TEST(ExcludePattern, MatchesByItsRules) {
    const std::vector<MatchCase> cases = {
        // One name: at any depth, the whole name, letter case aside.
        {L"*.pdb", L"program.pdb", true},
        {L"*.pdb", L"data\\deep\\er\\X.PDB", true},
        {L"*.pdb", L"program.pdb.txt", false},
        {L"*.pdb", L"pdb", false},
        {L"*.pdb", L".pdb", true},
        {L"cache", L"data\\cache", true},
        {L"cache", L"data\\cache2", false},
        {L"cache", L"cache\\x", false},
        {L"cache\\", L"data\\cache", true},
        {L"*", L"anything", true},
        {L"**", L"a\\b", true},
        {L"\u00DCbung", L"x\\\u00FCBUNG", true},
        // Several names: the whole path from the directory.
        {L"data\\cache", L"data\\cache", true},
        {L"data/cache/", L"DATA\\Cache", true},
        {L"data\\cache", L"x\\data\\cache", false},
        {L"data\\*.tmp", L"data\\a.tmp", true},
        {L"data\\*.tmp", L"data\\sub\\a.tmp", false},
        {L"data\\**\\*.tmp", L"data\\a.tmp", true},
        {L"data\\**\\*.tmp", L"data\\one\\two\\a.tmp", true},
        {L"data\\**\\*.tmp", L"other\\a.tmp", false},
        {L"**\\logs\\*", L"logs\\x", true},
        {L"**\\logs\\*", L"a\\logs\\x", true},
        {L"logs\\**", L"logs\\a\\b", true},
        // Within a name.
        {L"a?c", L"abc", true},
        {L"a?c", L"ac", false},
        {L"a?c", L"abbc", false},
        {L"?", L"\u4E2D", true},
        {L"*a*b*", L"xaybz", true},
        {L"*a*b*", L"xbya", false},
        {L"*ab", L"aab", true},
        {L"a**b", L"axxb", true},
        {L"[a]", L"a", false},
        {L"[a]", L"[A]", true},
        {L"...", L"...", true},
    };
    for (const MatchCase& test : cases) {
        EXPECT_EQ(MatchesPattern(ParseExcludePattern(test.pattern), test.path), test.matches)
            << WideToUtf8(test.pattern) << " on " << WideToUtf8(test.path);
    }
}

// Every text of up to so many of the characters.
std::vector<std::wstring> TextsOf(std::wstring_view characters, std::size_t longest) {
    std::vector<std::wstring> texts = {L""};
    for (std::size_t index = 0; index < texts.size() && texts[index].size() < longest; ++index) {
        const std::wstring shorter = texts[index];
        std::ranges::transform(characters, std::back_inserter(texts),
                               [&](wchar_t character) { return shorter + character; });
    }
    return texts;
}

std::wstring ExpressionOf(const std::wstring& pattern) {
    std::wstring expression;
    for (const wchar_t character : pattern) {
        expression += character == L'*'   ? std::wstring(L".*")
                      : character == L'?' ? std::wstring(L".")
                                          : std::wstring(1, character);
    }
    return expression;
}

// In the second of two elements, where "**" has no meaning of its own unless it is the whole.
TEST(ExcludePattern, AgreesWithARegularExpression) {
    const std::vector<std::wstring> names = TextsOf(L"AB", 5);
    int compared = 0;
    for (const std::wstring& pattern : TextsOf(L"AB*?", 4)) {
        if (pattern.empty() || pattern == L"**") {
            continue;
        }
        const std::wregex expression(ExpressionOf(pattern));
        const ExcludePattern parsed = ParseExcludePattern(L"x\\" + pattern);
        for (const std::wstring& name : names) {
            ASSERT_EQ(MatchesPattern(parsed, L"x\\" + name), std::regex_match(name, expression))
                << WideToUtf8(pattern) << " on " << WideToUtf8(name);
            ++compared;
        }
    }
    EXPECT_EQ(compared, 339 * 63);
}

// A way through every division of the name among the stars would not end in a lifetime.
TEST(ExcludePattern, ManyStarsTakeNoTime) {
    std::wstring pattern;
    for (int star = 0; star < 40; ++star) {
        pattern += L"*a";
    }
    const std::wstring name(200, L'a');
    EXPECT_FALSE(MatchesPattern(ParseExcludePattern(pattern + L"b"), name));
    EXPECT_TRUE(MatchesPattern(ParseExcludePattern(pattern), name));
}

TEST(ExcludePattern, RefusesWhatDoesNotLeadDownFromTheDirectory) {
    for (const wchar_t* pattern : {L"", L"\\", L"/", L"\\data", L"data\\\\x", L"..", L"..\\x",
                                   L"data\\..\\x", L".", L".\\x", L"C:\\x", L"C:x", L"data\\a:b"}) {
        EXPECT_THROW(ParseExcludePattern(pattern), UsageError) << WideToUtf8(pattern);
    }
}

}  // namespace
}  // namespace updater
