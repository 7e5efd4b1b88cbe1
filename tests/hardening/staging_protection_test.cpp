#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "fixtures/application_names.h"
#include "fixtures/directory_link.h"
#include "fixtures/file_content.h"
#include "fixtures/raised_errors.h"
#include "fixtures/scenes/staging_watch.h"
#include "fixtures/scenes/worker_scene.h"
#include "fixtures/temporary_directory.h"
#include "hardening/source_access.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "worker/staging.h"
#include "worker/worker.h"

namespace updater {

namespace {

constexpr char kInaccessible[] = "Protected staging directory already exists or is inaccessible";

// Everything that the descriptor sets, as text.
std::wstring DescriptorText(PSECURITY_DESCRIPTOR descriptor) {
    constexpr SECURITY_INFORMATION kEverything =
        OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION |
        SACL_SECURITY_INFORMATION;
    LPWSTR text = nullptr;
    ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1, kEverything,
                                                         &text, nullptr);
    const UniqueLocalMemory owned(text);
    return text == nullptr ? L"" : text;
}

SECURITY_DESCRIPTOR_CONTROL ControlOf(PSECURITY_DESCRIPTOR descriptor) {
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    GetSecurityDescriptorControl(descriptor, &control, &revision);
    return control;
}

// The entries of the list one by one are the worker's tests' subject.
TEST(StagingProtection, SetsTheAccessListAndNothingElse) {
    std::vector<std::wstring> texts;
    std::vector<SECURITY_DESCRIPTOR_CONTROL> controls;
    const ScopedReplacement creation(
        doubles::CreateDirectoryW, [&](LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
            EXPECT_EQ(security->nLength, sizeof(SECURITY_ATTRIBUTES));
            texts.push_back(DescriptorText(security->lpSecurityDescriptor));
            controls.push_back(ControlOf(security->lpSecurityDescriptor));
            return CreateDirectoryW(path, security);
        });
    RemoveTree(CreateStagingDirectory());
    EXPECT_EQ(texts, std::vector<std::wstring>{L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)"});
    // No flag asks for inheritance, and no owner or group is set: they become the worker's own.
    EXPECT_THAT(controls,
                testing::ElementsAre(SE_DACL_PRESENT | SE_DACL_PROTECTED | SE_SELF_RELATIVE));
}

// Something of the staging directory's name that somebody else has made before.
struct OccupiedName : testing::Test {
    OccupiedName() {
        scene.identity = GUID{0x01020304, 0x0506, 0x0708, {9, 10, 11, 12, 13, 14, 15, 16}};
        staging.dataFolder = scene.directory.path;
    }

    SimulatedUpdate scene{Rights::Elevated};
    StagingWatch staging{scene};
    std::filesystem::path occupied =
        scene.directory.path / IDENTITY_BASE_NAME L"-{01020304-0506-0708-090A-0B0C0D0E0F10}";
};

TEST_F(OccupiedName, OfAFileIsRefused) {
    WriteFileContent(occupied, "a file");
    EXPECT_THAT([] { CreateStagingDirectory(); }, RaisesError(kInaccessible));
    EXPECT_EQ(ReadFileContent(occupied), "a file");
}

TEST_F(OccupiedName, OfALinkToADirectoryIsRefused) {
    const TemporaryDirectory elsewhere;
    const DirectoryLink link(occupied, elsewhere.path);
    EXPECT_THAT([] { CreateStagingDirectory(); }, RaisesError(kInaccessible));
    EXPECT_TRUE(ReadTreeContent(elsewhere.path).empty());
}

struct SourceUse {
    int exitCode;
    std::vector<std::string> operations;
};

SourceUse RunUpdateWithSetupEndingWith(const char* exitCode) {
    WorkerScene scene;
    scene.LetSetupEndWith(exitCode);
    const SourceAccess access(scene.installer.filename().native());
    const int result = RunWorker(scene.arguments);
    return {result, access.operations};
}

TEST(SetupProgramsSource, IsCopiedAndNeverReachedAgain) {
    const SourceUse succeeded = RunUpdateWithSetupEndingWith("0");
    EXPECT_EQ(succeeded.exitCode, 0);
    EXPECT_EQ(succeeded.operations, std::vector<std::string>{"CopyFileW"});
}

TEST(SetupProgramsSource, IsNotReachedByTheRollbackEither) {
    const SourceUse rolledBack = RunUpdateWithSetupEndingWith("1");
    EXPECT_EQ(rolledBack.exitCode, 1);
    EXPECT_EQ(rolledBack.operations, std::vector<std::string>{"CopyFileW"});
}

}  // namespace

}  // namespace updater
