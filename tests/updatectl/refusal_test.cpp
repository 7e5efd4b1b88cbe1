// What the tool does when the system refuses it something that it cannot be made to refuse for
// real.

#include <gmock/gmock.h>

#include <functional>
#include <stdexcept>

#include "fixtures/application_names.h"
#include "fixtures/doubles/updater_doubles.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/install_mutex.h"
#include "fixtures/temporary_directory.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/version_information.h"
#include "support/windows_api.h"
#include "updatectl/entry_times.h"
#include "updatectl/output.h"
#include "updatectl/security_double.h"
#include "updatectl/tool.h"
#include "updatectl/tool_call.h"
#include "worker/staging.h"

namespace updater {
namespace {

constexpr std::uint64_t kSomeTime = 130'000'000'000'000'000;

TEST(Refusal, OfTheOutputIsAFailure) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"output", "");
    const UniqueHandle readOnly = HoldFile(directory.path / L"output");
    HANDLE const before = GetStdHandle(STD_OUTPUT_HANDLE);
    SetStdHandle(STD_OUTPUT_HANDLE, readOnly.get());
    EXPECT_THROW(PrintOutput("text"), std::system_error);
    SetStdHandle(STD_OUTPUT_HANDLE, before);
}

TEST(UnfinishedInventory, CanBeReadByNobody) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / kExecutableName, "x");
    const std::filesystem::path unfinished = directory.path / L"program-files.tsv.tmp";
    int attempts = 0;
    const ScopedReplacement writing(
        doubles::WriteFile,
        [&](HANDLE file, LPCVOID data, DWORD bytes, LPDWORD written, LPOVERLAPPED overlapped) {
            if (PathExists(unfinished)) {
                ++attempts;
                EXPECT_THROW(HoldFile(unfinished, GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE),
                             std::runtime_error);
            }
            return WriteFile(file, data, bytes, written, overlapped);
        });
    const std::vector<std::wstring> tokens = {L"inventory", directory.path.native()};
    EXPECT_EQ(RunTool(tokens), kToolDone);
    EXPECT_EQ(attempts, 1);
}

// A staging directory in the folder of all users' data.
struct StagingTest : testing::Test {
    ~StagingTest() override { RemoveTree(staging); }

    [[nodiscard]] int Clean(const std::vector<std::wstring>& more = {}) const {
        std::vector<std::wstring> tokens = {L"clean"};
        tokens.insert(tokens.end(), more.begin(), more.end());
        return RunTool(tokens);
    }

    std::filesystem::path staging = CreateStagingDirectory();
};

TEST_F(StagingTest, IsNotRemovedIfAnotherUserHasMadeIt) {
    const ReportedSecurity foreign(L"O:BUD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)");
    EXPECT_EQ(Clean(), kToolFailed);
    EXPECT_TRUE(PathExists(staging));
}

// What is handed to Windows and what it answers, because no other account holds the mutex here.
TEST_F(StagingTest, IsNotRemovedWithinAnUpdateUnlessSomebodyHoldsTheMutex) {
    const std::filesystem::path older = staging;
    const std::filesystem::path current = CreateStagingDirectory();
    SetTimes(older, kSomeTime);
    SetTimes(current, kSomeTime + 1);
    const ReportedSecurity security(kStagingDirectorySecurity);
    std::vector<std::wstring> names;
    DWORD answer = ERROR_FILE_NOT_FOUND;
    const ScopedReplacement mutex(doubles::OpenMutexW,
                                  [&](DWORD access, BOOL inherited, LPCWSTR name) {
                                      EXPECT_EQ(access, DWORD{SYNCHRONIZE});
                                      EXPECT_EQ(inherited, FALSE);
                                      names.emplace_back(name);
                                      return FailWith<HANDLE>(answer, nullptr);
                                  });
    for (const DWORD refusal : {ERROR_FILE_NOT_FOUND, ERROR_INVALID_HANDLE, ERROR_GEN_FAILURE}) {
        answer = refusal;
        EXPECT_EQ(Clean({L"--setup-dir", current.native()}), kToolFailed) << refusal;
        EXPECT_TRUE(PathExists(older)) << refusal;
    }
    answer = ERROR_ACCESS_DENIED;
    EXPECT_EQ(Clean({L"--setup-dir", current.native()}), kToolDone);
    EXPECT_FALSE(PathExists(older));
    EXPECT_TRUE(PathExists(current));
    EXPECT_EQ(names, std::vector<std::wstring>(4, kInstallMutexName));
    RemoveTree(current);
}

// The leftovers of an interrupted update, and what its setup program has made of the installation.
struct InterruptedUpdateTest : testing::Test {
    InterruptedUpdateTest() {
        for (const std::filesystem::path& place : {install, staging / L"backup"}) {
            CreateDirectories(place);
            CopyOverFile(Application1(), place / kExecutableName);
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
    std::filesystem::path staging =
        directory.path / IDENTITY_BASE_NAME L"-{01234567-89AB-CDEF-0123-456789ABCDEF}";
};

TEST_F(InterruptedUpdateTest, IsNotRestoredFromADirectoryThatAnotherUserHasMade) {
    const ReportedSecurity foreign(L"O:BUD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)");
    EXPECT_EQ(Restore(), kToolFailed);
    EXPECT_TRUE(PathExists(install / L"added.dll"));
}

TEST_F(InterruptedUpdateTest, IsNotCalledRestoredWhenTheVersionIsAnother) {
    const ReportedSecurity security(kStagingDirectorySecurity);
    const ScopedReplacement otherVersion(
        doubles::ReadExecutableVersion, [this](const std::filesystem::path& executable) {
            return executable == install / kExecutableName ? std::wstring(L"9.9.9.9")
                                                           : ReadExecutableVersion(executable);
        });
    EXPECT_EQ(Restore(), kToolFailed);
    EXPECT_FALSE(PathExists(install / L"added.dll"));
}

TEST_F(InterruptedUpdateTest, IsRestoredOtherwise) {
    const ReportedSecurity security(kStagingDirectorySecurity);
    EXPECT_EQ(Restore(), kToolDone);
    EXPECT_FALSE(PathExists(install / L"added.dll"));
}

// Every call by which something is opened or looked at, until Windows was asked.
struct FilesTouched {
    int before = 0;
    bool asked = false;

    template <typename Function>
    std::function<Function> Counting(Function* real) {
        return [this, real](auto... arguments) {
            before += asked ? 0 : 1;
            return real(arguments...);
        };
    }

    ScopedReplacement<decltype(CreateFileW)> opened{doubles::CreateFileW, Counting(CreateFileW)};
    ScopedReplacement<decltype(FindFirstFileExW)> listed{doubles::FindFirstFileExW,
                                                         Counting(FindFirstFileExW)};
    ScopedReplacement<decltype(GetFileAttributesW)> inspected{doubles::GetFileAttributesW,
                                                              Counting(GetFileAttributesW)};
    ScopedReplacement<decltype(SetProcessMitigationPolicy)> policy{
        doubles::SetProcessMitigationPolicy, [this](PROCESS_MITIGATION_POLICY kind, PVOID, SIZE_T) {
            asked = kind == ProcessRedirectionTrustPolicy;
            return FailWith(ERROR_INVALID_PARAMETER);
        }};
};

// An older Windows refuses, and the work goes on.
TEST_F(StagingTest, IsRemovedAfterWindowsWasAskedNotToFollowLinksOfUsers) {
    const ReportedSecurity security(kStagingDirectorySecurity);
    const FilesTouched touched;
    EXPECT_EQ(Clean(), kToolDone);
    EXPECT_TRUE(touched.asked);
    EXPECT_EQ(touched.before, 0);
    EXPECT_FALSE(PathExists(staging));
}

TEST_F(InterruptedUpdateTest, IsRestoredAfterWindowsWasAskedNotToFollowLinksOfUsers) {
    const ReportedSecurity security(kStagingDirectorySecurity);
    const FilesTouched touched;
    EXPECT_EQ(Restore(), kToolDone);
    EXPECT_TRUE(touched.asked);
    EXPECT_EQ(touched.before, 0);
    EXPECT_FALSE(PathExists(install / L"added.dll"));
}

}  // namespace
}  // namespace updater
