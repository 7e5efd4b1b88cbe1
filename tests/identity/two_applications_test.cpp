// Two applications with an updater of their own each on one machine. This program's is the one of
// the build's identity; the other one's updates are carried out by a program that it starts.

#include <gmock/gmock.h>

#include <array>
#include <string>
#include <string_view>

#include "elevation/program_start.h"
#include "end_to_end/setup_gate.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
#include "fixtures/built_path.h"
#include "fixtures/install_mutex.h"
#include "support/application_identity.h"
#include "support/extended_length_path.h"
#include "support/file_system.h"
#include "support/process_utilities.h"
#include "support/text_conversion.h"
#include "updatectl/file_security.h"
#include "updatectl/tool_call.h"
#include "worker/staging.h"

namespace updater {
namespace {

using testing::HasSubstr;

constexpr std::wstring_view kOtherBaseName = CORVELLAN_OTHER_BASE_NAME;

constexpr char kRolledBack[] = "Installed executable version mismatch; previous program restored";

// Runs the other application's updates whose names fit; what is wrong with one, that program
// prints.
void ExpectOtherUpdates(const std::wstring& names) {
    const StartedProgram other =
        StartProgram({.program = BuiltPath(CORVELLAN_OTHER_UPDATES),
                      .arguments = L"--gtest_filter=OtherUpdate." + names});
    EXPECT_EQ(AwaitEnd(other.process.get(), "the other application's update"), 0U)
        << WideToUtf8(names);
}

struct TwoApplications : UpdateTest {
    // Takes this application's update so far that its setup program runs; it waits there.
    void BeginInstallation(const SetupGate& gate) {
        CarryOutUpdate();
        Await("the setup program", [&] { return gate.IsReached(); });
        ASSERT_TRUE(InstallMutexExists());
    }

    void ExpectUpdateDone() {
        ExpectQuietEnd(*this, RecordText("succeeded", "Installed version 2.0.0.0", 0), 0);
        ExpectVersion2(*this);
        ExpectRestart(job.installDirectory, "2.0.0.0");
    }

    void ExpectRollbackDone() {
        ExpectErrorBox(*this, RecordText("failed", kRolledBack, 1));
        ExpectNothingChanged(*this);
        ExpectRestart(job.installDirectory, "1.0.0.0");
    }
};

// The other one is updated, and rolled back; that this one runs meanwhile is not in the way.
TEST_F(TwoApplications, AreUpdatedOneAfterTheOther) {
    CarryOutUpdate();
    ExpectUpdateDone();
    const std::vector<std::filesystem::path> left = NewStagingDirectories();
    const Application running = StartApplication(job.installDirectory);
    ExpectOtherUpdates(L"*");
    EXPECT_FALSE(HasEnded(running.process.get()));
    CloseApplication(running);
    ExpectVersion2(*this);
    EXPECT_EQ(NewStagingDirectories(), left);
}

// The other one begins and ends its update while this one's setup program runs.
TEST_F(TwoApplications, AreUpdatedAtOnceWhenTheOtherIsRolledBack) {
    OfferSetup(L"v2-adding", L"2.0.0.0");
    const SetupGate gate(*this);
    BeginInstallation(gate);
    ExpectOtherUpdates(L"IsRolledBack");
    EXPECT_TRUE(HasState("installing"));
    gate.Open();
    ExpectUpdateDone();
}

TEST_F(TwoApplications, AreUpdatedAtOnceWhenThisOneIsRolledBack) {
    OfferSetup(L"v2-adding", L"9.9.9.9");
    const SetupGate gate(*this);
    BeginInstallation(gate);
    ExpectOtherUpdates(L"Succeeds");
    EXPECT_TRUE(HasState("installing"));
    gate.Open();
    ExpectRollbackDone();
}

// A leftover of each application, as an update makes it. Their backups hold the same program.
struct LeftoversOfTwo : testing::Test {
    LeftoversOfTwo()
        : own(CreateStagingDirectory()),
          other(MachineDataFolder() /
                std::wstring(kOtherBaseName).append(L"-" + CreateJobIdentity())) {
        const std::filesystem::path made = CreateStagingDirectory();
        Fill(made);
        Fill(own);
        // Like this its access list is that of a staging directory.
        EXPECT_TRUE(MoveFileW(made.c_str(), other.c_str()));
    }

    ~LeftoversOfTwo() override {
        for (const std::filesystem::path& directory : {own, other}) {
            if (PathExists(directory)) {
                RemoveTree(ExtendedLengthPath(directory));
            }
        }
    }

    LeftoversOfTwo(const LeftoversOfTwo&) = delete;
    LeftoversOfTwo& operator=(const LeftoversOfTwo&) = delete;

    static void Fill(const std::filesystem::path& staging) {
        CreateDirectories(staging / kBackupDirectory);
        LetAdministratorsWrite(staging / kBackupDirectory);
        for (const wchar_t* executable : {kApplicationExecutable, CORVELLAN_OTHER_EXECUTABLE}) {
            CopyOverFile(Application1(), staging / kBackupDirectory / executable);
        }
        CopyOverFile(Application1(), staging / kSetupLog);
    }

    static ToolResult CallOtherTool(const std::vector<std::wstring>& arguments) {
        return CallToolAt(BuiltPath(CORVELLAN_OTHER_RELEASE_TOOL), arguments);
    }

    std::filesystem::path own;
    std::filesystem::path other;
};

TEST_F(LeftoversOfTwo, AreRemovedByTheirOwnToolOnly) {
    const ToolResult removed = CallTool({L"clean"});
    EXPECT_EQ(removed.exitCode, 0U) << removed.error;
    EXPECT_EQ(removed.error, "");
    EXPECT_FALSE(PathExists(own));
    EXPECT_TRUE(PathExists(other / kBackupDirectory / kApplicationExecutable));
    EXPECT_THAT(removed.output, testing::Not(HasSubstr(WideToUtf8(other.native()))));

    own = CreateStagingDirectory();
    const ToolResult otherRemoved = CallOtherTool({L"clean"});
    EXPECT_EQ(otherRemoved.exitCode, 0U) << otherRemoved.error;
    EXPECT_EQ(otherRemoved.error, "");
    EXPECT_THAT(otherRemoved.output, HasSubstr(WideToUtf8(other.native()) + "  removed\n"));
    EXPECT_FALSE(PathExists(other));
    EXPECT_TRUE(PathExists(own));
}

TEST_F(LeftoversOfTwo, AreRestoredByTheirOwnToolOnly) {
    const TemporaryDirectory install;
    const auto restore = [&](const std::filesystem::path& staging) {
        return std::vector<std::wstring>{L"restore", L"--staging", staging.native(),
                                         L"--install-dir", install.path.native()};
    };
    constexpr char kWhy[] = " is not named as this application's updates name theirs\n";
    const ToolResult refused = CallTool(restore(other));
    EXPECT_EQ(refused.exitCode, 1U);
    EXPECT_THAT(refused.error, HasSubstr(WideToUtf8(other.native()) + kWhy));
    const ToolResult otherRefused = CallOtherTool(restore(own));
    EXPECT_EQ(otherRefused.exitCode, 1U);
    EXPECT_THAT(otherRefused.error, HasSubstr(WideToUtf8(own.native()) + kWhy));
    EXPECT_FALSE(PathExists(ApplicationPath(install.path)));

    const ToolResult restored = CallTool(restore(own));
    EXPECT_EQ(restored.exitCode, 0U) << restored.error;
    const ToolResult otherRestored = CallOtherTool(restore(other));
    EXPECT_EQ(otherRestored.exitCode, 0U) << otherRestored.error;
    EXPECT_TRUE(PathExists(install.path / CORVELLAN_OTHER_EXECUTABLE));
}

// While one application is updated, only its own tool waits for that.
TEST_F(LeftoversOfTwo, AreRemovedWhileTheOtherApplicationIsUpdated) {
    const UniqueHandle mutex = OwnHandle(
        CreateMutexW(nullptr, TRUE,
                     std::wstring(L"Global\\").append(kOtherBaseName).append(L"Install").c_str()));
    EXPECT_EQ(CallOtherTool({L"clean"}).exitCode, 1U);
    EXPECT_TRUE(PathExists(other));
    EXPECT_EQ(CallTool({L"clean"}).exitCode, 0U);
    EXPECT_FALSE(PathExists(own));
}

}  // namespace
}  // namespace updater
