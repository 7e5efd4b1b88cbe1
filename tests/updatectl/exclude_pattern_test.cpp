#include "updatectl/exclude_pattern.h"

#include <gmock/gmock.h>

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
        {L"*.pdb", L"corvellan.pdb", true},
        {L"*.pdb", L"data\\deep\\er\\X.PDB", true},
        {L"*.pdb", L"corvellan.pdb.txt", false},
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

TEST(ExcludePattern, RefusesWhatDoesNotLeadDownFromTheDirectory) {
    for (const wchar_t* pattern : {L"", L"\\", L"/", L"\\data", L"data\\\\x", L"..", L"..\\x",
                                   L"data\\..\\x", L".", L".\\x", L"C:\\x", L"C:x", L"data\\a:b"}) {
        EXPECT_THROW(ParseExcludePattern(pattern), UsageError) << WideToUtf8(pattern);
    }
}

}  // namespace
}  // namespace updater
