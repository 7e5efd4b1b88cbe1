#include <gmock/gmock.h>

#include "elevation/program_start.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/patience.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/process_utilities.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"
#include "updatectl/entry_times.h"
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
            WriteFileContent(directory / L"install.log", "x");
            SetTimes(directory, kYear2100 - age * kDay);
        }
    }
    ~CleanTest() override {
        for (const std::filesystem::path& directory : directories) {
            if (PathExists(directory)) {
                RemoveTree(directory);
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
    const std::filesystem::path similar = folder / L"CorvellanUpdate-{similar}";
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
    EXPECT_EQ(result.error, "corvellan-updatectl: Another update installation is running\n");
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
    EXPECT_THAT(result.error, HasSubstr("remove_all"));
    EXPECT_THAT(result.error, HasSubstr(WideToUtf8(directories[0].native())));
    EXPECT_EQ(Present(), "100");
}

TEST_F(CleanTest, NeedsAnAdministratorToRemoveButNotToList) {
    ASSERT_TRUE(IsProcessElevated());
    const ToolResult refused = CallToolLimited({L"clean"});
    EXPECT_EQ(refused.exitCode, 1U);
    EXPECT_THAT(refused.error, HasSubstr("Administrator authorization is required"));
    EXPECT_EQ(refused.output, "");
    EXPECT_EQ(Present(), "111");

    const ToolResult listed = CallToolLimited({L"clean", L"--dry-run"});
    EXPECT_EQ(listed.exitCode, 0U);
    EXPECT_THAT(listed.output, HasSubstr(Line(2, "2099-12-30T00:00:00Z", "would be removed")));
    EXPECT_EQ(Present(), "111");
}

}  // namespace
}  // namespace updater
