#include "snapshot/program_backup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

#include "fixtures/application_names.h"
#include "fixtures/directory_link.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "support/file_system.h"
#include "support/windows_api.h"

namespace updater {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

struct ProgramBackup : testing::Test {
    void Install(const std::filesystem::path& file, std::string_view content) const {
        WriteFileContent(installation / file, content);
    }

    std::map<std::wstring, std::string> BackupContent() const { return ReadTreeContent(backup); }

    ProgramBackup() { CreateDirectories(installation); }

    TemporaryDirectory directory;
    std::filesystem::path installation = directory.path / L"\u5B89\u88C5 directory";
    std::filesystem::path backup = directory.path / L"staging \u76EE\u5F55" / L"backup";
};

TEST_F(ProgramBackup, CopiesAndRecordsExactlyTheProgramAssets) {
    Install(kExecutableName, "application");
    Install(L"data\\app.so", "assets");
    Install(L"account.db", "account");
    const ProgramAssets record = BackupProgram(installation, backup);
    EXPECT_EQ(record, (ProgramAssets{kExecutableName, L"data\\app.so"}));
    EXPECT_THAT(BackupContent(), ElementsAre(Pair(kExecutableName, "application"),
                                             Pair(L"data\\", ""), Pair(L"data\\app.so", "assets")));
}

TEST_F(ProgramBackup, OfAnInstallationWithoutAssetsCreatesNothing) {
    Install(L"account.db", "account");
    Install(L"plugins\\a.dll", "plugin");
    CreateDirectories(installation / L"data\\empty");
    EXPECT_THAT(BackupProgram(installation, backup), IsEmpty());
    EXPECT_FALSE(PathExists(backup.parent_path()));
}

TEST_F(ProgramBackup, ReplacesCopiesAndKeepsWhatElseIsThere) {
    Install(kExecutableName, "new");
    Install(L"data\\app.so", "new assets");
    WriteFileContent(backup / kExecutableName, "a longer content of an earlier backup");
    WriteFileContent(backup / L"data\\app.so", "old");
    WriteFileContent(backup / L"engine.dll", "unrelated");
    WriteFileContent(backup / L"data\\other\\file", "unrelated as well");
    const ProgramAssets record = BackupProgram(installation, backup);
    EXPECT_EQ(record, (ProgramAssets{kExecutableName, L"data\\app.so"}));
    EXPECT_THAT(BackupContent(),
                ElementsAre(Pair(kExecutableName, "new"), Pair(L"data\\", ""),
                            Pair(L"data\\app.so", "new assets"), Pair(L"data\\other\\", ""),
                            Pair(L"data\\other\\file", "unrelated as well"),
                            Pair(L"engine.dll", "unrelated")));
}

TEST_F(ProgramBackup, ReplacesAReadOnlyCopy) {
    Install(kExecutableName, "old");
    ASSERT_TRUE(
        SetFileAttributesW((installation / kExecutableName).c_str(), FILE_ATTRIBUTE_READONLY));
    BackupProgram(installation, backup);
    ASSERT_TRUE(
        SetFileAttributesW((installation / kExecutableName).c_str(), FILE_ATTRIBUTE_NORMAL));
    Install(kExecutableName, "new");
    BackupProgram(installation, backup);
    EXPECT_EQ(ReadFileContent(backup / kExecutableName), "new");
}

TEST_F(ProgramBackup, DoesNotRecreateDirectoriesWithoutFiles) {
    Install(L"data\\used\\file", "content");
    CreateDirectories(installation / L"data\\empty");
    CreateDirectories(installation / L"data\\used\\also empty");
    BackupProgram(installation, backup);
    EXPECT_THAT(BackupContent(), ElementsAre(Pair(L"data\\", ""), Pair(L"data\\used\\", ""),
                                             Pair(L"data\\used\\file", "content")));
}

TEST_F(ProgramBackup, CopiesEveryByte) {
    std::string large;
    for (int number = 0; large.size() < 200'000; ++number) {
        large += static_cast<char>(number * 31 % 251);
    }
    Install(L"empty.dll", "");
    Install(L"data\\large.bin", large);
    Install(L"data\\bytes.bin", std::string_view("\0\r\n\x1A\xFF\xEF\xBB\xBF\n", 9));
    BackupProgram(installation, backup);
    EXPECT_EQ(ReadTreeContent(installation), BackupContent());
    EXPECT_EQ(BackupContent().at(L"data\\large.bin"), large);
}

TEST_F(ProgramBackup, CopiesPathsWithSpacesAndChineseCharacters) {
    Install(L"\u5F15\u64CE library.dll", "engine");
    Install(L"data\\\u6570\u636E dir\\\u6587\u4EF6 1.bin", "data");
    const ProgramAssets record = BackupProgram(installation, backup);
    EXPECT_EQ(record, (ProgramAssets{L"data\\\u6570\u636E dir\\\u6587\u4EF6 1.bin",
                                     L"\u5F15\u64CE library.dll"}));
    EXPECT_EQ(ReadTreeContent(installation), BackupContent());
}

TEST_F(ProgramBackup, LeavesTheInstallationAsItIs) {
    Install(kExecutableName, "application");
    Install(L"data\\app.so", "assets");
    Install(L"account.db", "account");
    const auto before = ReadTreeContent(installation);
    BackupProgram(installation, backup);
    EXPECT_EQ(ReadTreeContent(installation), before);
}

TEST_F(ProgramBackup, CopiesNothingWhenTheAssetsCannotBeEnumerated) {
    Install(kExecutableName, "application");
    {
        TemporaryDirectory elsewhere;
        const DirectoryLink link(installation / L"logs", elsewhere.path);
        EXPECT_THAT([this] { BackupProgram(installation, backup); },
                    RaisesError("Reparse points are not supported in installation directory"));
        EXPECT_FALSE(PathExists(backup));
    }
    const std::filesystem::path missing = directory.path / L"missing";
    EXPECT_THAT([&] { BackupProgram(missing, backup); },
                RaisesFileSystemError("directory_iterator::directory_iterator", missing));
    EXPECT_FALSE(PathExists(backup));
}

TEST_F(ProgramBackup, FailsWhenAFileStandsInTheWayOfADirectory) {
    Install(L"data\\sub\\app.so", "assets");
    const struct {
        std::filesystem::path file;
        std::filesystem::path directory;
    } cases[] = {
        {backup.parent_path(), backup / L"data\\sub"},
        {backup, backup / L"data\\sub"},
        {backup / L"data", backup / L"data\\sub"},
        {backup / L"data\\sub", backup / L"data\\sub"},
    };
    for (const auto& [file, needed] : cases) {
        WriteFileContent(file, "in the way");
        EXPECT_THAT([this] { BackupProgram(installation, backup); },
                    RaisesFileSystemError("create_directories", needed));
        EXPECT_EQ(ReadFileContent(file), "in the way");
        RemoveFile(file);
    }
}

TEST_F(ProgramBackup, FailsForASourceThatAnotherProcessHoldsLockedAndKeepsTheCopiesMade) {
    Install(L"a.dll", "first");
    Install(L"b.dll", "locked");
    Install(L"c.dll", "last");
    const UniqueHandle lock = HoldFile(installation / L"b.dll");
    EXPECT_THAT([this] { BackupProgram(installation, backup); },
                RaisesFileSystemError("copy_file", installation / L"b.dll", backup / L"b.dll"));
    EXPECT_THAT(BackupContent(), ElementsAre(Pair(L"a.dll", "first")));
}

TEST_F(ProgramBackup, FailsForATargetThatCannotBeWritten) {
    Install(L"a.dll", "new");
    WriteFileContent(backup / L"a.dll", "old");
    UniqueHandle lock = HoldFile(backup / L"a.dll");
    EXPECT_THAT([this] { BackupProgram(installation, backup); },
                RaisesFileSystemError("copy_file", installation / L"a.dll", backup / L"a.dll"));
    lock.reset();
    EXPECT_EQ(ReadFileContent(backup / L"a.dll"), "old");
}

TEST_F(ProgramBackup, FailsForATargetThatIsADirectory) {
    Install(L"a.dll", "new");
    CreateDirectories(backup / L"a.dll");
    EXPECT_THAT([this] { BackupProgram(installation, backup); },
                RaisesFileSystemError("copy_file", installation / L"a.dll", backup / L"a.dll"));
}

}  // namespace
}  // namespace updater
