// What the repository's own identity makes of every name and text, character for character:
// nobody's application may be called otherwise after a change here or in the identity's making.
// This is the one place besides the identity file that spells the names out.

#include <gmock/gmock.h>

#include "fixtures/application_names.h"
#include "fixtures/built_path.h"
#include "support/application_identity.h"
#include "support/version_information.h"
#include "updatectl/tool_call.h"

namespace updater {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST(DefaultIdentity, NamesTheApplicationsObjects) {
    EXPECT_STREQ(kApplicationExecutable, L"corvellan.exe");
    EXPECT_STREQ(kUpdaterExecutable, L"corvellan-updater.exe");
    EXPECT_STREQ(kLocalDirectory, L"Corvellan");
    EXPECT_STREQ(kUninstallKey,
                 L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\"
                 L"5D1E7B20-3C9A-4F68-B2D4-9E0A6C7F1B35_is1");
    EXPECT_STREQ(kInstallMutex, L"Global\\CorvellanUpdateInstall");
    EXPECT_STREQ(kHandshakePrefix, L"Local\\CorvellanUpdate-");
    EXPECT_STREQ(kStagingPrefix, L"CorvellanUpdate-");
}

TEST(DefaultIdentity, NamesWhatUsersSee) {
    EXPECT_STREQ(kErrorBoxTitle, L"Corvellan\u66F4\u65B0");
    EXPECT_STREQ(kStatusHeading,
                 L"\u5347\u7EA7\u672A\u5B8C\u6210\uFF0C\u5931\u8D25\u8BB0\u5F55\uFF1A\n");
    EXPECT_STREQ(kReleaseTool, "corvellan-updatectl");
    EXPECT_STREQ(kUpdaterDescription, "Corvellan Updater");
    EXPECT_STREQ(kExecutableWord, "CORVELLAN_EXE");
    EXPECT_STREQ(IDENTITY_COMPANY, "Corvellan");
    EXPECT_STREQ(IDENTITY_LOCAL_DIRECTORY, "Corvellan");
}

TEST(DefaultIdentity, NamesTheProgramsFiles) {
    EXPECT_EQ(BuiltPath(CORVELLAN_UPDATER).filename(), L"corvellan-updater.exe");
    EXPECT_EQ(ToolPath().filename(), L"corvellan-updatectl.exe");
    EXPECT_EQ(BuiltPath(CORVELLAN_CLIENT_LIBRARY).filename(), L"corvellan-update.dll");
}

TEST(DefaultIdentity, StandsInTheReleaseToolsHelp) {
    const std::string help = CallTool({L"--help"}).output;
    EXPECT_THAT(help,
                StartsWith("Usage: corvellan-updatectl COMMAND [OPTIONS]\n\n"
                           "Makes and checks the data of a release that the Corvellan Updater "
                           "installs, and helps out on a\n"));
    EXPECT_THAT(CallTool({L"describe", L"--help"}).output,
                StartsWith("Usage: corvellan-updatectl describe SETUP --app CORVELLAN_EXE\n"));
    EXPECT_THAT(CallTool({L"describe", L"--help"}).output,
                HasSubstr("\n  --app CORVELLAN_EXE   the executable that SETUP installs\n"));
    EXPECT_THAT(
        CallTool({L"clean", L"--help"}).output,
        HasSubstr("that earlier updates left, \"CorvellanUpdate-{...}\" in the folder of\n"));
    EXPECT_THAT(CallTool({L"clean", L"--help"}).output,
                HasSubstr("\n'corvellan-updatectl restore --help' says."));
    EXPECT_THAT(CallTool({L"restore", L"--help"}).output,
                HasSubstr("all users' data; 'corvellan-updatectl clean --dry-run' lists them"));
}

}  // namespace
}  // namespace updater
