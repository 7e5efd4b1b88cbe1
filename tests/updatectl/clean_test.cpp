#include <gmock/gmock.h>

#include "elevation/program_start.h"
#include "fixtures/application_names.h"
#include "fixtures/directory_link.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/patience.h"
#include "fixtures/temporary_directory.h"
#include "support/extended_length_path.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/process_utilities.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"
#include "updatectl/entry_times.h"
#include "updatectl/file_security.h"
#include "updatectl/limited_call.h"
#include "updatectl/tool_call.h"
#include "worker/install_mutex.h"
#include "worker/staging.h"

namespace updater {
namespace {

using testing::HasSubstr;

constexpr char kNoLeftover[] = "There is no leftover staging directory.\n";

constexpr std::uint64_t kDay = 864'000'000'000;
// 2100-01-01T00:00:00Z, so that the tests' directories are newer than any that is there already.
constexpr std::uint64_t kYear2100 = 157'469'184'000'000'000;

// The folder of all users' data with the leftovers of three updates. There must be none before;
// what a test or an interrupted run has left is told once.
struct CleanTest : testing::Test {
    CleanTest() {
        EXPECT_EQ(CallTool({L"clean"}).output, kNoLeftover);
        for (std::uint64_t age = 0; age < 3; ++age) {
            directories.push_back(CreateStagingDirectory());
            const std::filesystem::path& directory = directories.back();
            CopyToNewFile(Application1(), directory / L"installer.exe");
            WriteFileContent(directory / L"backup\\data\\\u4E2D", "x");
            SetFileAttributesW((directory / L"backup\\data\\\u4E2D").c_str(),
                               FILE_ATTRIBUTE_READONLY);
            // Only by the form that the updater uses for a backup can it be named.
            WriteFileContent(
                ExtendedLengthPath(directory / L"backup\\data\\with a dot at the end."), "x");
            WriteFileContent(directory / L"install.log", "x");
            SetTimes(directory, kYear2100 - age * kDay);
        }
    }
    ~CleanTest() override {
        for (const std::filesystem::path& directory : directories) {
            if (PathExists(directory)) {
                RemoveTree(ExtendedLengthPath(directory));
            }
        }
    }

    // Which of the three are there.
    std::string Present() const {
        std::string present;
        for (const std::filesystem::path& directory : directories) {
            present += PathExists(directory) ? '1' : '0';
        }
        return present;
    }

    std::string Line(std::size_t index, const std::string& time, const std::string& action) const {
        return time + "  " + WideToUtf8(directories[index].native()) + "  " + action + "\n";
    }

    // The newest first.
    std::vector<std::filesystem::path> directories;
};

TEST_F(CleanTest, RemovesWhatUpdatesLeftAndNothingElse) {
    const std::filesystem::path folder = MachineDataFolder();
    const std::filesystem::path similar = folder / IDENTITY_BASE_NAME L"-{similar}";
    CreateDirectories(similar);
    const ToolResult result = CallTool({L"clean"});
    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.output, Line(0, "2100-01-01T00:00:00Z", "removed") +
                                 Line(1, "2099-12-31T00:00:00Z", "removed") +
                                 Line(2, "2099-12-30T00:00:00Z", "removed"));
    EXPECT_EQ(Present(), "000");
    EXPECT_TRUE(PathExists(similar));
    RemoveTree(similar);

    const ToolResult again = CallTool({L"clean"});
    EXPECT_EQ(again.exitCode, 0U);
    EXPECT_EQ(again.output, kNoLeftover);
}

TEST_F(CleanTest, KeepsTheNewest) {
    const ToolResult result = CallTool({L"clean", L"--keep", L"2"});
    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_EQ(result.output, Line(0, "2100-01-01T00:00:00Z", "kept") +
                                 Line(1, "2099-12-31T00:00:00Z", "kept") +
                                 Line(2, "2099-12-30T00:00:00Z", "removed"));
    EXPECT_EQ(Present(), "110");
    EXPECT_EQ(CallTool({L"clean", L"--keep", L"5"}).exitCode, 0U);
    EXPECT_EQ(Present(), "110");
}

TEST_F(CleanTest, OnlyListsOnRequest) {
    const UniqueHandle mutex = AcquireInstallMutex();
    const ToolResult result = CallTool({L"clean", L"--dry-run", L"--keep", L"1"});
    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_EQ(result.output, Line(0, "2100-01-01T00:00:00Z", "kept") +
                                 Line(1, "2099-12-31T00:00:00Z", "would be removed") +
                                 Line(2, "2099-12-30T00:00:00Z", "would be removed"));
    EXPECT_EQ(Present(), "111");
}

TEST_F(CleanTest, RemovesNothingWhileAnUpdateIsInstalled) {
    const UniqueHandle mutex = AcquireInstallMutex();
    const ToolResult result = CallTool({L"clean"});
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.error,
              IDENTITY_RELEASE_TOOL_STEM ": Another update installation is running\n");
    EXPECT_EQ(Present(), "111");
}

TEST_F(CleanTest, LeavesADirectoryWhoseSetupProgramRuns) {
    const StartedProgram setup = StartProgram(
        {.program = directories[1] / L"installer.exe", .arguments = {}, .workingDirectory = {}});
    const ToolResult result = CallTool({L"clean"});
    TerminateProcess(setup.process.get(), 0);
    IsSignalledWithin(setup.process.get(), kPatienceMilliseconds);
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_EQ(result.error, "Cannot remove " + WideToUtf8(directories[1].native()) +
                                ": its setup program is still running\n");
    EXPECT_EQ(Present(), "010");
    EXPECT_TRUE(PathExists(directories[1] / L"backup\\data\\\u4E2D"));
}

TEST_F(CleanTest, GoesOnWithTheOthersWhenOneCannotBeRemoved) {
    const UniqueHandle lock =
        HoldFile(directories[0] / L"install.log", GENERIC_READ, FILE_SHARE_READ);
    const ToolResult result = CallTool({L"clean"});
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_THAT(result.error, HasSubstr("remove:"));
    EXPECT_THAT(result.error, HasSubstr(WideToUtf8(directories[0].native())));
    EXPECT_EQ(Present(), "100");
}

TEST_F(CleanTest, NeedsAnAdministrator) {
    ASSERT_TRUE(IsProcessElevated());
    for (const std::vector<std::wstring>& arguments :
         {std::vector<std::wstring>{L"clean"}, {L"clean", L"--dry-run"}}) {
        const ToolResult refused = CallToolLimited(arguments);
        EXPECT_EQ(refused.exitCode, 1U);
        EXPECT_THAT(refused.error, HasSubstr("Administrator authorization is required"));
        EXPECT_EQ(refused.output, "");
        EXPECT_EQ(Present(), "111");
    }
}

TEST_F(CleanTest, LeavesAndDoesNotCountWhatOthersCanHaveMade) {
    LetEverybodyWrite(directories[0]);
    const std::string reason = "Left as it is: " + WideToUtf8(directories[0].native()) +
                               " can be changed by others than administrators and the system\n";
    const ToolResult listed = CallTool({L"clean", L"--keep", L"1", L"--dry-run"});
    EXPECT_EQ(listed.exitCode, 1U);
    EXPECT_EQ(listed.error, reason);
    EXPECT_EQ(listed.output, Line(1, "2099-12-31T00:00:00Z", "kept") +
                                 Line(2, "2099-12-30T00:00:00Z", "would be removed"));

    const ToolResult result = CallTool({L"clean", L"--keep", L"1"});
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_EQ(result.error, reason);
    EXPECT_EQ(result.output,
              Line(1, "2099-12-31T00:00:00Z", "kept") + Line(2, "2099-12-30T00:00:00Z", "removed"));
    EXPECT_EQ(Present(), "110");
    EXPECT_TRUE(PathExists(directories[0] / L"backup\\data\\\u4E2D"));

    EXPECT_EQ(CallTool({L"clean"}).exitCode, 1U);
    const ToolResult alone = CallTool({L"clean"});
    EXPECT_EQ(alone.exitCode, 1U);
    EXPECT_EQ(alone.output, kNoLeftover);
    EXPECT_EQ(alone.error, reason);
}

TEST_F(CleanTest, LeavesADirectoryAsItIsThatHoldsALinkOrADirectoryOfOthers) {
    const TemporaryDirectory elsewhere;
    WriteFileContent(elsewhere.path / L"precious", "x");
    const DirectoryLink link(directories[0] / L"backup\\data\\link", elsewhere.path);
    LetEverybodyWrite(directories[1] / L"backup\\data");
    const ToolResult result = CallTool({L"clean"});
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_THAT(result.error, HasSubstr(WideToUtf8(directories[0].native()) + ": " +
                                        WideToUtf8(link.link.native()) + " is a link\n"));
    EXPECT_THAT(result.error,
                HasSubstr(WideToUtf8(directories[1].native()) + ": " +
                          WideToUtf8((directories[1] / L"backup\\data").native()) +
                          " can be changed by others than administrators and the system\n"));
    EXPECT_EQ(Present(), "110");
    for (std::size_t index : {0, 1}) {
        EXPECT_TRUE(PathExists(directories[index] / L"installer.exe"));
        EXPECT_TRUE(PathExists(directories[index] / L"backup\\data\\\u4E2D"));
    }
    EXPECT_TRUE(PathExists(elsewhere.path / L"precious"));
}

// What is newer belongs to an update that began after this one's worker was ended.
TEST_F(CleanTest, RemovesWithinAnUpdateWhatIsOlderThanItsOwnDirectory) {
    const UniqueHandle mutex = AcquireInstallMutex();
    const std::wstring current = (directories[1] / L".").native();
    const ToolResult listed = CallTool({L"clean", L"--setup-dir", current, L"--dry-run"});
    EXPECT_EQ(listed.output, Line(0, "2100-01-01T00:00:00Z", "in use") +
                                 Line(1, "2099-12-31T00:00:00Z", "in use") +
                                 Line(2, "2099-12-30T00:00:00Z", "would be removed"));
    const ToolResult result = CallTool({L"clean", L"--setup-dir", current});
    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.output, Line(0, "2100-01-01T00:00:00Z", "in use") +
                                 Line(1, "2099-12-31T00:00:00Z", "in use") +
                                 Line(2, "2099-12-30T00:00:00Z", "removed"));
    EXPECT_EQ(Present(), "110");
}

TEST_F(CleanTest, KeepsOlderOnesWithinAnUpdateOnRequest) {
    const UniqueHandle mutex = AcquireInstallMutex();
    const ToolResult result =
        CallTool({L"clean", L"--keep", L"1", L"--setup-dir", directories[0].native()});
    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_EQ(result.output, Line(0, "2100-01-01T00:00:00Z", "in use") +
                                 Line(1, "2099-12-31T00:00:00Z", "kept") +
                                 Line(2, "2099-12-30T00:00:00Z", "removed"));
}

TEST_F(CleanTest, RemovesNothingWhenTheWorkerHasEnded) {
    const ToolResult result = CallTool({L"clean", L"--setup-dir", directories[0].native()});
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.error, IDENTITY_RELEASE_TOOL_STEM
              ": The updater that started the setup program has ended\n");
    EXPECT_EQ(Present(), "111");
}

TEST_F(CleanTest, RemovesNothingForASetupProgramInADirectoryOfOthers) {
    const UniqueHandle mutex = AcquireInstallMutex();
    LetEverybodyWrite(directories[0]);
    const ToolResult result = CallTool({L"clean", L"--setup-dir", directories[0].native()});
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_THAT(result.error,
                HasSubstr("The setup program does not lie in a directory of the updater's\n"));
    EXPECT_EQ(Present(), "111");
}

TEST_F(CleanTest, IsLikeAnyOtherForASetupProgramThatTheUserHasStarted) {
    const TemporaryDirectory downloads;
    // A staging directory's name alone does not make one.
    const std::filesystem::path similar = downloads.path / directories[0].filename();
    CreateDirectories(similar);
    for (const std::filesystem::path& directory :
         {downloads.path, downloads.path.root_path() / L".", similar, directories[0] / L"backup",
          MachineDataFolder()}) {
        const UniqueHandle mutex = AcquireInstallMutex();
        const ToolResult refused = CallTool({L"clean", L"--setup-dir", directory.native()});
        EXPECT_EQ(refused.exitCode, 1U);
        EXPECT_EQ(refused.error,
                  IDENTITY_RELEASE_TOOL_STEM ": Another update installation is running\n");
        EXPECT_EQ(Present(), "111");
    }
    EXPECT_EQ(CallTool({L"clean", L"--setup-dir", (similar / L"missing").native()}).exitCode, 1U);
    EXPECT_EQ(Present(), "111");
    EXPECT_EQ(CallTool({L"clean", L"--setup-dir", similar.native()}).exitCode, 0U);
    EXPECT_EQ(Present(), "000");
}

}  // namespace
}  // namespace updater
