// What an installation does against intruders, a loss of power and limits of the system.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fixtures/file_content.h"
#include "fixtures/processes/expected_records.h"
#include "fixtures/scenes/installation_scene.h"
#include "support/file_system.h"
#include "support/text_conversion.h"

namespace updater {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr char kRestored[] = "; previous program restored";

TEST(TemporaryFiles, OfTheSetupProgramGoToTheStagingDirectory) {
    InstallationScene scene;
    std::vector<std::optional<std::wstring>> variables;
    scene.onSetupStart = [&variables] {
        variables = {ReadVariable(L"TMP"), ReadVariable(L"TEMP")};
    };
    EXPECT_EQ(InstallUpdate(scene.installation), 0);
    const std::wstring& staging = scene.installation.stagingDirectory.native();
    EXPECT_THAT(variables, ElementsAre(staging, staging));
    // It gets them as everything else of the worker's surroundings.
    ASSERT_EQ(scene.processes.starts.size(), 1U);
    EXPECT_FALSE(scene.processes.starts[0].hasEnvironment);
}

TEST(TemporaryFiles, ThatCannotBeRedirectedKeepTheSetupProgramFromStarting) {
    for (const wchar_t* refused : {L"TMP", L"TEMP"}) {
        InstallationScene scene;
        int refusals = 0;
        const ScopedReplacement refusing(doubles::SetEnvironmentVariableW,
                                         [refused, &refusals](LPCWSTR name, LPCWSTR value) {
                                             if (name != std::wstring(refused)) {
                                                 return SetEnvironmentVariableW(name, value);
                                             }
                                             ++refusals;
                                             return FailWith(ERROR_NOT_ENOUGH_MEMORY);
                                         });
        EXPECT_EQ(InstallUpdate(scene.installation), 1);
        EXPECT_EQ(refusals, 1);
        EXPECT_TRUE(scene.processes.starts.empty());
        EXPECT_EQ(scene.status.records.back(),
                  (StatusRecord{"failed",
                                "Cannot redirect the setup program's temporary files" +
                                    std::string(kRestored),
                                1}));
    }
}

TEST(Backup, IsFlushedWithItsVolumeOnce) {
    InstallationScene scene;
    EXPECT_EQ(InstallUpdate(scene.installation), 0);
    EXPECT_THAT(scene.flushed, ElementsAre(scene.installation.stagingDirectory));
}

TEST(Backup, OfAVolumeThatCannotBeFlushedIsAsGood) {
    InstallationScene scene;
    int attempts = 0;
    const ScopedReplacement refusing(doubles::GetVolumePathNameW,
                                     [&attempts](LPCWSTR, LPWSTR, DWORD) {
                                         ++attempts;
                                         return FailWith(ERROR_ACCESS_DENIED);
                                     });
    EXPECT_EQ(InstallUpdate(scene.installation), 0);
    EXPECT_EQ(attempts, 1) << "nothing is tried twice";
}

// Windows without long paths: a path of 260 characters and more, its end counted, is refused unless
// it has the form that says how long it may be. A directory's path may be twelve shorter.
struct LimitedPaths {
    static bool IsTooLong(LPCWSTR path, std::size_t limit) {
        return !std::wstring_view(path).starts_with(L"\\\\?\\") &&
               std::wstring_view(path).size() + 1 > limit;
    }

    ScopedReplacement<decltype(CreateDirectoryW)> createDirectory{
        doubles::CreateDirectoryW, [](LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
            return IsTooLong(path, MAX_PATH - 12) ? FailWith(ERROR_FILENAME_EXCED_RANGE)
                                                  : CreateDirectoryW(path, security);
        }};
    ScopedReplacement<decltype(CreateFileW)> createFile{
        doubles::CreateFileW,
        [](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
           DWORD disposition, DWORD flags, HANDLE model) -> HANDLE {
            if (IsTooLong(path, MAX_PATH)) {
                return FailWith<HANDLE>(ERROR_PATH_NOT_FOUND, INVALID_HANDLE_VALUE);
            }
            return CreateFileW(path, access, share, security, disposition, flags, model);
        }};
    ScopedReplacement<decltype(GetFileAttributesW)> attributes{
        doubles::GetFileAttributesW, [](LPCWSTR path) {
            return IsTooLong(path, MAX_PATH)
                       ? FailWith<DWORD>(ERROR_PATH_NOT_FOUND, INVALID_FILE_ATTRIBUTES)
                       : GetFileAttributesW(path);
        }};
    ScopedReplacement<decltype(CopyFileW)> copyFile{
        doubles::CopyFileW, [](LPCWSTR source, LPCWSTR target, BOOL failIfExists) {
            return IsTooLong(source, MAX_PATH) || IsTooLong(target, MAX_PATH)
                       ? FailWith(ERROR_PATH_NOT_FOUND)
                       : CopyFileW(source, target, failIfExists);
        }};
};

// An installed file whose path is as long as a file's may be; the staging directory's name is
// longer than the installation directory's.
struct LongestInstalledFile {
    LongestInstalledFile() {
        const std::filesystem::path data = scene.installation.installDirectory / L"data";
        file = data / std::wstring(MAX_PATH - 2 - data.native().size(), L'n');
        WriteFileContent(file, "old");
        // The program is what it was before, whatever the setup program does.
        scene.LetSetupEndWith("1");
    }

    InstallationScene scene;
    std::filesystem::path file;
};

TEST(Backup, ReachesFilesWhoseCopiesHaveLongerPathsThanWindowsAllows) {
    LongestInstalledFile longest;
    InstallationScene& scene = longest.scene;
    ASSERT_EQ(longest.file.native().size(), static_cast<std::size_t>(MAX_PATH - 1));
    scene.onSetupStart = [&longest] { RemoveFile(longest.file); };
    {
        const LimitedPaths limited;
        EXPECT_EQ(InstallUpdate(scene.installation), 1);
    }
    EXPECT_EQ(
        scene.status.records.back(),
        (StatusRecord{"failed", "Inno Setup did not complete; exit code=1" + std::string(kRestored),
                      1}));
    EXPECT_EQ(ReadFileContent(longest.file), "old");
}

TEST(Backup, ThatFailsIsReportedWithOrdinaryPaths) {
    InstallationScene scene;
    const ScopedReplacement refusing(
        doubles::CopyFileW, [](LPCWSTR, LPCWSTR, BOOL) { return FailWith(ERROR_DISK_FULL); });
    try {
        InstallUpdate(scene.installation);
        FAIL() << "the backup cannot be made";
    } catch (const std::filesystem::filesystem_error& error) {
        EXPECT_THAT(error.what(), HasSubstr("copy_file"));
        EXPECT_THAT(error.what(), Not(HasSubstr("?")));
        EXPECT_EQ(error.path2().parent_path(), scene.installation.stagingDirectory / L"backup");
    }
}

}  // namespace
}  // namespace updater
