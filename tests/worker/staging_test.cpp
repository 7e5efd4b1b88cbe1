#include "worker/staging.h"

#include <gtest/gtest.h>

#include <cctype>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "fixtures/application_names.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/raised_errors.h"
#include "fixtures/scenes/staging_watch.h"
#include "fixtures/scoped_variable.h"
#include "fixtures/temporary_directory.h"
#include "support/file_digest.h"
#include "support/file_system.h"
#include "support/handle.h"

namespace updater {
namespace {

constexpr char kInaccessible[] = "Protected staging directory already exists or is inaccessible";
constexpr char kMismatch[] = "Protected installer size or SHA256 mismatch";

struct StagingDirectory : testing::Test {
    SimulatedUpdate scene{Rights::Elevated};
    StagingWatch staging{scene};
};

TEST_F(StagingDirectory, LiesUnderTheMachinesDataFolderWithAFreshName) {
    const std::filesystem::path first = CreateStagingDirectory();
    const std::filesystem::path second = CreateStagingDirectory();
    EXPECT_NE(first, second);
    const std::wregex form(
        LR"()" IDENTITY_BASE_NAME LR"(-\{[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\})");
    for (const std::filesystem::path& directory : {first, second}) {
        EXPECT_TRUE(std::regex_match(directory.filename().native(), form));
        EXPECT_EQ(directory.parent_path().native(), ReadVariable(L"ProgramData"));
        EXPECT_TRUE(ReadTreeContent(directory).empty());
    }
    EXPECT_EQ(staging.created, (std::vector{first, second}));
}

TEST_F(StagingDirectory, AsksForTheCommonDataFolderOfThisMachine) {
    CreateStagingDirectory();
    ASSERT_EQ(staging.folderQueries.size(), 1U);
    constexpr GUID kCommonData = {
        0x62AB5D82, 0xFDC1, 0x4DC3, {0xA9, 0xDD, 0x07, 0x0D, 0x1D, 0x49, 0x5D, 0x97}};
    EXPECT_NE(IsEqualGUID(staging.folderQueries[0].folder, kCommonData), 0);
    EXPECT_EQ(staging.folderQueries[0].flags, 0U);
    EXPECT_EQ(staging.folderQueries[0].token, nullptr);
}

// Otherwise the shell loads it, and may find another one beside the executable.
TEST(MachineDataFolder, IsAskedForOnceOle32HasBeenCalled) {
    std::vector<std::string> calls;
    const ScopedReplacement released(doubles::CoTaskMemFree, [&calls](LPVOID memory) {
        calls.emplace_back(memory == nullptr ? "release nothing" : "release the folder");
        CoTaskMemFree(memory);
    });
    const ScopedReplacement asked(
        doubles::SHGetKnownFolderPath,
        [&calls](REFKNOWNFOLDERID folder, DWORD flags, HANDLE token, PWSTR* path) {
            calls.emplace_back("find the folder");
            return SHGetKnownFolderPath(folder, flags, token, path);
        });
    MachineDataFolder();
    EXPECT_EQ(calls, (std::vector<std::string>{"release nothing", "find the folder",
                                               "release the folder"}));
}

TEST_F(StagingDirectory, GrantsFullAccessToTheSystemAndAdministratorsAlone) {
    CreateStagingDirectory();
    EXPECT_EQ(staging.securityTexts,
              std::vector<std::wstring>{L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)"});
    EXPECT_EQ(staging.securityRevisions, std::vector<DWORD>{1});
    ASSERT_EQ(staging.creations.size(), 1U);
    const DirectoryCreation& creation = staging.creations.front();
    EXPECT_FALSE(creation.inheritsHandle);
    EXPECT_TRUE(creation.isProtected);
    constexpr int kInherited = OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE;
    EXPECT_EQ(creation.entries,
              (std::vector<AccessEntry>{
                  {ACCESS_ALLOWED_ACE_TYPE, kInherited, FILE_ALL_ACCESS, L"S-1-5-18"},
                  {ACCESS_ALLOWED_ACE_TYPE, kInherited, FILE_ALL_ACCESS, L"S-1-5-32-544"}}));
}

TEST_F(StagingDirectory, TakesItsStepsInTheirOrderAndReleasesTheSystemsMemory) {
    CreateStagingDirectory();
    EXPECT_EQ(scene.actions,
              (std::vector<std::string>{"find data folder", "release memory", "create identity",
                                        "make security descriptor", "create staging directory",
                                        "release memory"}));
    EXPECT_TRUE(staging.unreleased.empty());
}

TEST_F(StagingDirectory, IsNotMadeWithoutTheDataFolder) {
    scene.faults.folderUnknown = true;
    EXPECT_THAT([] { CreateStagingDirectory(); },
                RaisesError("Cannot locate machine staging directory"));
    EXPECT_EQ(scene.actions, std::vector<std::string>{"find data folder"});
}

TEST_F(StagingDirectory, IsNotMadeWithoutAnIdentity) {
    scene.faults.identityUnavailable = true;
    EXPECT_THAT([] { CreateStagingDirectory(); }, RaisesError("Cannot create update job identity"));
    EXPECT_TRUE(staging.securityTexts.empty());
    EXPECT_TRUE(staging.unreleased.empty());
}

TEST_F(StagingDirectory, IsNotMadeWithoutItsProtection) {
    scene.faults.securityUnavailable = true;
    EXPECT_THAT([] { CreateStagingDirectory(); },
                RaisesError("Cannot create protected staging directory"));
    EXPECT_TRUE(staging.creations.empty());
    EXPECT_TRUE(staging.unreleased.empty());
}

TEST_F(StagingDirectory, IsMissedWhenItCannotBeCreated) {
    scene.faults.directoryUnavailable = true;
    EXPECT_THAT([] { CreateStagingDirectory(); }, RaisesError(kInaccessible));
    EXPECT_TRUE(staging.unreleased.empty());
}

TEST_F(StagingDirectory, IsNeverOneThatExistsAlready) {
    scene.identity = GUID{0x01020304, 0x0506, 0x0708, {9, 10, 11, 12, 13, 14, 15, 16}};
    const std::filesystem::path first = CreateStagingDirectory();
    EXPECT_EQ(first.filename(), IDENTITY_BASE_NAME L"-{01020304-0506-0708-090A-0B0C0D0E0F10}");
    WriteFileContent(first / L"installer.exe", "of another run");

    EXPECT_THAT([] { CreateStagingDirectory(); }, RaisesError(kInaccessible));
    EXPECT_EQ(ReadFileContent(first / L"installer.exe"), "of another run");
}

TEST_F(StagingDirectory, IsNotMadeThroughFoldersThatAreMissing) {
    const TemporaryDirectory directory;
    staging.dataFolder = directory.path / L"missing";
    EXPECT_THAT([] { CreateStagingDirectory(); }, RaisesError(kInaccessible));
    EXPECT_FALSE(PathExists(staging.dataFolder));
}

TEST_F(StagingDirectory, LiesInADataFolderOfAnyName) {
    const TemporaryDirectory directory;
    staging.dataFolder = directory.path;
    EXPECT_EQ(CreateStagingDirectory().parent_path(), directory.path);
}

constexpr char kContent[] = "a setup program";

struct StagedInstaller : testing::Test {
    StagedInstaller() {
        CreateDirectories(staging);
        WriteFileContent(installer, kContent);
        digest = FileSha256Hex(installer);
    }

    std::filesystem::path Stage() const {
        return StageSetupProgram(installer, staging, size, digest);
    }

    TemporaryDirectory directory;
    std::filesystem::path installer = directory.path / L"\u4E0B\u8F7D setup 2.exe";
    std::filesystem::path staging = directory.path / L"\u6682\u5B58 staging";
    std::filesystem::path copy = staging / L"installer.exe";
    std::uint64_t size = sizeof(kContent) - 1;
    std::string digest;
};

TEST_F(StagedInstaller, CopiesTheSetupProgramAndReturnsTheCopy) {
    EXPECT_EQ(StageSetupProgram(installer, staging, size, digest), copy);
    EXPECT_EQ(ReadFileContent(copy), kContent);
    EXPECT_EQ(ReadFileContent(installer), kContent);
}

TEST_F(StagedInstaller, RaisesWhenTheSetupProgramIsMissing) {
    RemoveFile(installer);
    EXPECT_THAT([&] { StageSetupProgram(installer, staging, size, digest); },
                RaisesFileSystemError("copy_file", installer, copy));
}

TEST_F(StagedInstaller, NeverReplacesAFile) {
    WriteFileContent(copy, "here before");
    EXPECT_THAT([&] { StageSetupProgram(installer, staging, size, digest); },
                RaisesFileSystemError("copy_file", installer, copy));
    EXPECT_EQ(ReadFileContent(copy), "here before");
}

TEST_F(StagedInstaller, RefusesAnotherSizeWithoutComputingTheDigest) {
    int digests = 0;
    const ScopedReplacement provider(
        doubles::BCryptOpenAlgorithmProvider,
        [&](BCRYPT_ALG_HANDLE* handle, LPCWSTR identifier, LPCWSTR implementation, ULONG flags) {
            ++digests;
            return BCryptOpenAlgorithmProvider(handle, identifier, implementation, flags);
        });
    for (const std::uint64_t wrong : {size - 1, size + 1, std::uint64_t{0}, size + 0x1'0000'0000}) {
        size = wrong;
        EXPECT_THAT([&] { StageSetupProgram(installer, staging, size, digest); },
                    RaisesError(kMismatch));
        EXPECT_EQ(ReadFileContent(copy), kContent);
        RemoveFile(copy);
    }
    EXPECT_EQ(digests, 0);
    size = sizeof(kContent) - 1;
    StageSetupProgram(installer, staging, size, digest);
    EXPECT_EQ(digests, 1);
}

TEST_F(StagedInstaller, RefusesAnyOtherDigestText) {
    std::string upperCase = digest;
    for (char& character : upperCase) {
        character = static_cast<char>(std::toupper(character));
    }
    ASSERT_NE(upperCase, digest);
    std::string other = digest;
    other.front() = other.front() == '0' ? '1' : '0';
    for (const std::string& wrong : {upperCase, other, digest + " ", digest.substr(1), " " + digest,
                                     std::string(), std::string("0")}) {
        SCOPED_TRACE(wrong);
        EXPECT_THAT([&] { StageSetupProgram(installer, staging, size, wrong); },
                    RaisesError(kMismatch));
        EXPECT_EQ(ReadFileContent(copy), kContent);
        RemoveFile(copy);
    }
}

// Does something right after the copy was made.
struct AfterCopy {
    explicit AfterCopy(std::function<void()> action)
        : copyFile(doubles::CopyFileW, [action](LPCWSTR source, LPCWSTR target, BOOL failing) {
              const BOOL done = CopyFileW(source, target, failing);
              action();
              return done;
          }) {}
    ScopedReplacement<decltype(CopyFileW)> copyFile;
};

TEST_F(StagedInstaller, ChecksTheCopyNotTheSource) {
    {
        const AfterCopy swapped([&] { WriteFileContent(installer, "swapped"); });
        EXPECT_EQ(StageSetupProgram(installer, staging, size, digest), copy);
    }
    RemoveFile(copy);
    WriteFileContent(installer, kContent);
    const AfterCopy spoiled([&] { WriteFileContent(copy, "A setup program"); });
    EXPECT_THAT([&] { StageSetupProgram(installer, staging, size, digest); },
                RaisesError(kMismatch));
    EXPECT_EQ(ReadFileContent(installer), kContent);
}

TEST_F(StagedInstaller, RaisesWhenTheCopysSizeCannotBeRead) {
    const AfterCopy vanished([&] { RemoveFile(copy); });
    EXPECT_THAT([&] { StageSetupProgram(installer, staging, size, digest); },
                RaisesFileSystemError("file_size", copy));
}

TEST_F(StagedInstaller, RaisesWhenTheCopyCannotBeReadAndLeavesIt) {
    UniqueHandle held;
    const AfterCopy locked([&] { held = HoldFile(copy, GENERIC_WRITE); });
    EXPECT_THAT([&] { StageSetupProgram(installer, staging, size, digest); },
                RaisesError("SHA256 verification failed"));
    held.reset();
    EXPECT_EQ(ReadFileContent(copy), kContent);
}

}  // namespace
}  // namespace updater
