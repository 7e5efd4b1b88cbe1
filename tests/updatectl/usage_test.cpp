#include <gmock/gmock.h>

#include "fixtures/application_names.h"
#include "support/version_information.h"
#include "updatectl/tool_call.h"

namespace updater {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

TEST(Usage, ShowsTheToolsHelpAndVersion) {
    const ToolResult help = CallTool({L"--help"});
    EXPECT_EQ(help.exitCode, 0U);
    for (const char* command :
         {"inventory", "verify", "describe", "publish", "feed", "restore", "clean"}) {
        EXPECT_THAT(help.output, HasSubstr(std::string("\n  ") + command + " "));
    }
    EXPECT_THAT(help.output, HasSubstr("Exit codes: 0 done; 1 the check failed or the work could "
                                       "not be done; 2 wrong usage.\n"));
    EXPECT_THAT(help.error, IsEmpty());

    const ToolResult version = CallTool({L"--version"});
    EXPECT_EQ(version.exitCode, 0U);
    EXPECT_THAT(version.output,
                testing::MatchesRegex(IDENTITY_RELEASE_TOOL_STEM " \\d+\\.\\d+\\.\\d+\n"));
    // The version resource has a fourth number, 0.
    const std::wstring resource = ReadExecutableVersion(ToolPath());
    EXPECT_EQ(IDENTITY_RELEASE_TOOL_STEM " " + std::string(resource.begin(), resource.end()),
              version.output.substr(0, version.output.size() - 1) + ".0");
}

TEST(Usage, ShowsEachCommandsHelpWhateverElseIsGiven) {
    struct HelpCase {
        std::wstring command;
        const char* usage;
        std::vector<const char*> mentions;
    };
    const std::vector<HelpCase> cases = {
        {L"inventory",
         "Usage: " IDENTITY_RELEASE_TOOL_STEM " inventory DIR [--exclude PATTERN]... [--json]\n",
         {"SHA-256", "--exclude PATTERN ", "--json ", "**"}},
        {L"verify",
         "Usage: " IDENTITY_RELEASE_TOOL_STEM " verify DIR [--json]\n",
         {"--json ", "; line 0\n", "The exit code is 0 only if"}},
        {L"describe",
         "Usage: " IDENTITY_RELEASE_TOOL_STEM " describe SETUP --app " IDENTITY_EXECUTABLE_WORD
         "\n",
         {"--app " IDENTITY_EXECUTABLE_WORD " "}},
        {L"publish",
         "Usage: " IDENTITY_RELEASE_TOOL_STEM " publish SETUP --app " IDENTITY_EXECUTABLE_WORD
         " --issue N --days N [OPTIONS]\n       " IDENTITY_RELEASE_TOOL_STEM
         " publish SETUP --signature FILE --key PUBLIC [--output DIR]\n",
         {"--app " IDENTITY_EXECUTABLE_WORD " ", "--issue N ", "--after FILE ", "--expires TIME ",
          "--days N ", "--channel NAME ", "--address URL ", "--lowest VERSION ", "--share N ",
          "--notes URL ", "--published TIME ", "--output DIR ", "--signature FILE ",
          "--key PUBLIC ", "openssl dgst -sha256 -sign"}},
        {L"feed",
         "Usage: " IDENTITY_RELEASE_TOOL_STEM " feed FILE --key PUBLIC... [--json]\n",
         {"--key PUBLIC ", "--json ", "The exit code is 0 only if"}},
        {L"restore",
         "Usage: " IDENTITY_RELEASE_TOOL_STEM
         " restore --staging DIR --install-dir DIR [--force]\n",
         {"--staging DIR ", "--install-dir DIR ", "--force ", "DisplayVersion"}},
        {L"clean",
         "Usage: " IDENTITY_RELEASE_TOOL_STEM " clean [--keep N] [--dry-run] [--setup-dir DIR]\n",
         {"--keep N ", "--dry-run ", "--setup-dir DIR ", "The exit code is 1 if"}},
    };
    for (const HelpCase& test : cases) {
        for (const std::vector<std::wstring>& arguments :
             {std::vector<std::wstring>{test.command, L"--help"},
              std::vector<std::wstring>{test.command, L"--nonsense", L"x", L"--help"}}) {
            const ToolResult result = CallTool(arguments);
            EXPECT_EQ(result.exitCode, 0U);
            EXPECT_THAT(result.output, StartsWith(test.usage));
            for (const char* mention : test.mentions) {
                EXPECT_THAT(result.output, HasSubstr(mention));
            }
            EXPECT_THAT(result.error, IsEmpty());
        }
    }
}

TEST(Usage, IsRefusedWithExitCode2AndAWordOnWhy) {
    struct WrongUsage {
        std::vector<std::wstring> arguments;
        const char* why;
        /// The command whose help is to be asked for next; null for the tool's own.
        const char* command = nullptr;
    };
    const std::vector<WrongUsage> cases = {
        {{}, "COMMAND is missing"},
        {{L""}, " is not a command"},
        {{L"Inventory"}, "Inventory is not a command"},
        {{L"\u4E2D"}, "\xE4\xB8\xAD is not a command"},
        {{L"--json", L"verify"}, "--json is not a command"},
        {{L"inventory"}, "DIR is missing", "inventory"},
        {{L"inventory", L""}, "DIR is missing", "inventory"},
        {{L"inventory", L"a", L"b"}, "b is one argument too many", "inventory"},
        {{L"inventory", L"a", L"--exclude"}, "--exclude needs a value", "inventory"},
        {{L"inventory", L"a", L"--exclude", L"..\\x"},
         "..\\x is no pattern for paths below DIR",
         "inventory"},
        {{L"inventory", L"a", L"--keep", L"1"},
         "--keep is not an option of this command",
         "inventory"},
        {{L"verify"}, "DIR is missing", "verify"},
        {{L"verify", L"a", L"--exclude", L"x"},
         "--exclude is not an option of this command",
         "verify"},
        {{L"describe", L"a"}, "--app is missing", "describe"},
        {{L"describe", L"--app", L"a"}, "SETUP is missing", "describe"},
        {{L"describe", L"a", L"--app", L"b", L"--app", L"b"}, "--app is repeated", "describe"},
        {{L"publish", L"--issue", L"1"}, "SETUP is missing", "publish"},
        {{L"publish", L"a", L"b"}, "b is one argument too many", "publish"},
        {{L"publish", L"a", L"--json"}, "--json is not an option of this command", "publish"},
        {{L"publish", L"a", L"--issue"}, "--issue needs a value", "publish"},
        {{L"publish", L"a", L"--issue", L"1", L"--days", L"1"}, "--app is missing", "publish"},
        {{L"feed", L"--key", L"a"}, "FILE is missing", "feed"},
        {{L"feed", L"a"}, "--key is missing", "feed"},
        {{L"feed", L"a", L"b", L"--key", L"c"}, "b is one argument too many", "feed"},
        {{L"feed", L"a", L"--signature", L"b"},
         "--signature is not an option of this command",
         "feed"},
        {{L"restore", L"--staging", L"a"}, "--install-dir is missing", "restore"},
        {{L"restore", L"--install-dir", L"a"}, "--staging is missing", "restore"},
        {{L"restore", L"--staging", L"a", L"--install-dir", L"b", L"c"},
         "c is one argument too many",
         "restore"},
        {{L"clean", L"x"}, "x is one argument too many", "clean"},
        {{L"clean", L"--keep"}, "--keep needs a value", "clean"},
        {{L"clean", L"--keep", L"-1"},
         "--keep needs a number from 0 to 999999999, not -1",
         "clean"},
        {{L"clean", L"--keep", L"1x"},
         "--keep needs a number from 0 to 999999999, not 1x",
         "clean"},
        {{L"clean", L"--keep", L"4294967296"},
         "--keep needs a number from 0 to 999999999, not 4294967296",
         "clean"},
    };
    for (const WrongUsage& test : cases) {
        const ToolResult result = CallTool(test.arguments);
        EXPECT_EQ(result.exitCode, 2U) << test.why;
        EXPECT_EQ(result.error, IDENTITY_RELEASE_TOOL_STEM ": " + std::string(test.why) +
                                    "\nTry '" IDENTITY_RELEASE_TOOL_STEM " " +
                                    (test.command ? std::string(test.command) + " " : "") +
                                    "--help'.\n");
        EXPECT_THAT(result.output, IsEmpty());
    }
}

TEST(Usage, ReportsAMissingDirectoryWithTheSystemsWords) {
    for (const wchar_t* command : {L"inventory", L"verify"}) {
        const ToolResult result = CallTool({command, L"C:\\no\\such \u4E2D"});
        EXPECT_EQ(result.exitCode, 1U);
        EXPECT_THAT(result.error,
                    testing::MatchesRegex(IDENTITY_RELEASE_TOOL_STEM
                                          ": Cannot open the directory "
                                          "C:\\\\no\\\\such \xE4\xB8\xAD: .*\\S.*\n"));
        EXPECT_THAT(result.output, IsEmpty());
    }
    const ToolResult file = CallTool({L"verify", ToolPath().native()});
    EXPECT_EQ(file.exitCode, 1U);
    EXPECT_THAT(file.error, HasSubstr("Cannot open the directory "));
}

}  // namespace
}  // namespace updater
