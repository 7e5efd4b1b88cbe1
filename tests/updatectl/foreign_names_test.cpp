#include <gmock/gmock.h>

#include <random>

#include "fixtures/file_content.h"
#include "fixtures/host_script.h"
#include "fixtures/temporary_directory.h"
#include "snapshot/program_verification.h"
#include "support/file_system.h"
#include "support/text_conversion.h"
#include "updatectl/tool_call.h"

namespace updater {
namespace {

using testing::AnyOf;
using testing::HasSubstr;

constexpr char kNotAllowed[] = " has a character in its name that Windows does not allow";
constexpr char kDevice[] = " has the name of a Windows device";
constexpr char kEnding[] = " has a name that ends in a dot or a space, which Windows leaves out";
constexpr char kNotUnicode[] = " has a name that is not valid Unicode text";
constexpr char kLineBreak[] = " has a tab or a line break in its name";
constexpr char kByteOrderMark[] = " begins with a byte-order mark";
constexpr char kLetterCase[] = " only in letter case";

// A program directory on another system's disk, where names are any bytes.
struct ForeignNamesTest : testing::Test {
    ForeignNamesTest() { WriteFileContent(directory / L"a", "abc"); }

    // Makes the files, whose names are in the quotes of the host's shell.
    void Make(const std::string& names) const {
        RunHostScript(directory, "for name in " + names +
                                     "; do mkdir -p -- \"$(dirname -- \"./$name\")\"; printf x > "
                                     "\"./$name\"; done\n");
    }

    ToolResult Call() const { return CallTool({L"inventory", directory.native()}); }

    TemporaryDirectory temporary;
    std::filesystem::path directory = temporary.path / L"program";
};

TEST_F(ForeignNamesTest, AreRefusedEachWithItsFault) {
    struct FaultCase {
        std::string name;
        std::string entry;
        const char* fault;
    };
    const std::vector<FaultCase> cases = {
        {"$'tab\\tx'", "tab<U+0009>x", kLineBreak},
        {"$'line\\nx'", "line<U+000A>x", kLineBreak},
        {"$'return\\r'", "return<U+000D>", kLineBreak},
        {"$'\\x01'", "<U+0001>", kNotAllowed},
        {"'a:b'", "a:b", kNotAllowed},
        {"'C:x'", "C:x", kNotAllowed},
        {"'lt<x'", "lt<x", kNotAllowed},
        {"'q?x'", "q?x", kNotAllowed},
        {"'back\\slash'", "back\\slash", kNotAllowed},
        {"'..\\up'", "..\\up", kNotAllowed},
        {"'dot.'", "dot.", kEnding},
        {"'space '", "space ", kEnding},
        {"'...'", "...", kEnding},
        {"'dir./x'", "dir.", kEnding},
        {"'.../x'", "...", kEnding},
        {"'NUL.txt'", "NUL.txt", kDevice},
        {"'data/com1'", "data\\com1", kDevice},
        {"'con/x'", "con", kDevice},
        {"$'bytes\\xff'", "bytes\xEF\xBF\xBD", kNotUnicode},
        {"$'latin\\xe9'", "latin\xEF\xBF\xBD", kNotUnicode},
        {"$'half\\xed\\xa0\\x80'", "half\xEF\xBF\xBD\xEF\xBF\xBD", kNotUnicode},
        {"$'\\xef\\xbb\\xbfmark'", "<U+FEFF>mark", kByteOrderMark},
        {"Case case", "case differs from Case", kLetterCase},
        {"$'d\\xc3\\x9c/1' $'d\\xc3\\xbc/2'", "d\xC3\xBC differs from d\xC3\x9C", kLetterCase},
        {"'Program-Files.tsv'", "Program-Files.tsv differs from program-files.tsv", kLetterCase},
    };
    for (const FaultCase& test : cases) {
        RunHostScript(directory, "rm -rf -- * .[!.]* ..?*");
        WriteFileContent(directory / L"a", "abc");
        Make(test.name);
        const ToolResult result = Call();
        EXPECT_EQ(result.exitCode, 1U) << test.name;
        EXPECT_THAT(result.error, HasSubstr(":\n  " + test.entry + test.fault + "\n")) << test.name;
        EXPECT_EQ(result.output, "") << test.name;
    }
}

TEST_F(ForeignNamesTest, AreRefusedTogether) {
    Make("'x:' 'NUL' 'sub/y.'");
    EXPECT_THAT(Call().error, testing::EndsWith("program:\n"
                                                "  NUL has the name of a Windows device\n"
                                                "  sub\\y. has a name that ends in a dot or a "
                                                "space, which Windows leaves out\n"
                                                "  x: has a character in its name that Windows "
                                                "does not allow\n"));
}

TEST_F(ForeignNamesTest, DoNotHideWhatIsNoFile) {
    RunHostScript(directory, "mkfifo pipe");
    const ToolResult result = Call();
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_THAT(result.error, HasSubstr("\n  pipe cannot be read: "));
}

// Whatever a disk holds: a list that was written verifies.
TEST_F(ForeignNamesTest, NeverLeadToAListThatDoesNotVerify) {
    constexpr int kTrees = 40;
    const std::vector<std::string> pieces = {
        "a",     "B",     "b",     ".",       " ",        "\\t",     "\\\\",  ":",
        "*",     "\\n",   "NUL",   "COM1",    "\\xff",    "\\xc3",   "\\xbc", "\\xc3\\xbc",
        "~1",    "\\x02", "\\x7f", "%",       "\\\"",     "\\'",     "/",     "/x/",
        "data/", "-",     "--",    "\\u4e2d", "\\U1F600", "\\ufeff", "$",     "program-files.tsv"};
    std::mt19937 random(20240615);
    const auto below = [&random](std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
    };
    int written = 0;
    for (int tree = 0; tree < kTrees; ++tree) {
        std::string script = "rm -rf -- * .[!.]* ..?*\n";
        const std::size_t files = 1 + below(3);
        for (std::size_t file = 0; file < files; ++file) {
            std::string name;
            for (std::size_t piece = 1 + below(4); piece > 0; --piece) {
                name += pieces[below(pieces.size())];
            }
            // Some of these are no names; what can be made is made.
            script += "name=./$'" + name + "'\n" +
                      "{ mkdir -p -- \"${name%/*}\" && printf '%s' \"$name\" > \"$name\"; } "
                      "2>/dev/null || true\n";
        }
        RunHostScript(directory, script);
        const ToolResult result = Call();
        const bool inventory = PathExists(directory / L"program-files.tsv.tmp");
        EXPECT_FALSE(inventory) << script;
        if (result.exitCode == 0) {
            ++written;
            EXPECT_NO_THROW(VerifyInstalledProgram(directory)) << script;
        } else {
            EXPECT_EQ(result.exitCode, 1U) << script;
            EXPECT_THAT(result.error,
                        AnyOf(HasSubstr(kNotAllowed), HasSubstr(kDevice), HasSubstr(kEnding),
                              HasSubstr(kNotUnicode), HasSubstr(kLineBreak),
                              HasSubstr(kByteOrderMark), HasSubstr(kLetterCase)))
                << script;
        }
    }
    EXPECT_GT(written, 3);
    EXPECT_LT(written, kTrees - 3);
}

}  // namespace
}  // namespace updater
