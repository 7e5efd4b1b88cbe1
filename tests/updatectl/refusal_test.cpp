// What the tool does when the system refuses it something that it cannot be made to refuse for
// real.

#include <gmock/gmock.h>

#include "fixtures/doubles/updater_doubles.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/temporary_directory.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/version_information.h"
#include "support/windows_api.h"
#include "updatectl/leftover_staging.h"
#include "updatectl/output.h"
#include "updatectl/owner_double.h"
#include "updatectl/tool.h"
#include "updatectl/tool_call.h"
#include "worker/staging.h"

// After the Windows types that it needs.
#include <aclapi.h>
#include <sddl.h>

namespace updater {
namespace {

// Until the end of the scope every file belongs to all users.
struct ForeignOwner {
    ReportedOwner allUsers{L"O:BU"};
};

TEST(Refusal, OfTheTokenIsAFailureToReadAnOwner) {
    const TemporaryDirectory directory;
    {
        const ScopedReplacement refusal(doubles::OpenProcessToken, [](HANDLE, DWORD, PHANDLE) {
            SetLastError(ERROR_ACCESS_DENIED);
            return FALSE;
        });
        EXPECT_THROW(IsOwnedByAdministrator(directory.path), std::system_error);
    }
    const ScopedReplacement refusal(doubles::GetTokenInformation,
                                    [](HANDLE, TOKEN_INFORMATION_CLASS, LPVOID, DWORD, PDWORD) {
                                        SetLastError(ERROR_ACCESS_DENIED);
                                        return FALSE;
                                    });
    EXPECT_THROW(IsOwnedByAdministrator(directory.path), std::system_error);
}

TEST(Refusal, OfTheOutputIsAFailure) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"output", "");
    const UniqueHandle readOnly = HoldFile(directory.path / L"output");
    HANDLE const before = GetStdHandle(STD_OUTPUT_HANDLE);
    SetStdHandle(STD_OUTPUT_HANDLE, readOnly.get());
    EXPECT_THROW(PrintOutput("text"), std::system_error);
    SetStdHandle(STD_OUTPUT_HANDLE, before);
}

TEST(ForeignStagingDirectory, IsNotRemoved) {
    const std::filesystem::path staging = CreateStagingDirectory();
    {
        const ForeignOwner owner;
        const std::vector<std::wstring> tokens = {L"clean"};
        EXPECT_EQ(RunTool(tokens), kToolFailed);
    }
    EXPECT_TRUE(PathExists(staging));
    RemoveTree(staging);
}

// The leftovers of an interrupted update, and what its setup program has made of the installation.
struct InterruptedUpdateTest : testing::Test {
    InterruptedUpdateTest() {
        for (const std::filesystem::path& place : {install, staging / L"backup"}) {
            CreateDirectories(place);
            CopyOverFile(Application1(), place / L"corvellan.exe");
        }
        WriteFileContent(staging / L"install.log", "half a log");
        WriteFileContent(install / L"added.dll", "new");
    }

    [[nodiscard]] int Restore() const {
        const std::vector<std::wstring> tokens = {L"restore", L"--staging", staging.native(),
                                                  L"--install-dir", install.native()};
        return RunTool(tokens);
    }

    TemporaryDirectory directory;
    std::filesystem::path install = directory.path / L"install";
    std::filesystem::path staging = directory.path / L"staging";
};

TEST_F(InterruptedUpdateTest, IsNotRestoredFromAForeignStagingDirectory) {
    const ForeignOwner owner;
    EXPECT_EQ(Restore(), kToolFailed);
    EXPECT_TRUE(PathExists(install / L"added.dll"));
}

TEST_F(InterruptedUpdateTest, IsNotCalledRestoredWhenTheVersionIsAnother) {
    const ScopedReplacement otherVersion(
        doubles::ReadExecutableVersion, [this](const std::filesystem::path& executable) {
            return executable == install / L"corvellan.exe" ? std::wstring(L"9.9.9.9")
                                                            : ReadExecutableVersion(executable);
        });
    EXPECT_EQ(Restore(), kToolFailed);
    EXPECT_FALSE(PathExists(install / L"added.dll"));
}

TEST_F(InterruptedUpdateTest, IsRestoredOtherwise) {
    EXPECT_EQ(Restore(), kToolDone);
    EXPECT_FALSE(PathExists(install / L"added.dll"));
}

}  // namespace
}  // namespace updater
