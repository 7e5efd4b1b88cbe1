#include "snapshot/program_restore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "fixtures/application_names.h"
#include "fixtures/directory_link.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "snapshot/program_backup.h"
#include "support/file_system.h"
#include "support/windows_api.h"

namespace updater {
namespace {

using testing::ElementsAre;
using testing::Pair;

// An installation with a backup; each test damages the one and restores it from the other.
struct ProgramRestore : testing::Test {
    ProgramRestore() {
        Install(kExecutableName, "old application");
        Install(L"data\\app.so", "old assets");
        Install(L"account.db", "account");
        record = BackupProgram(installation, backup);
    }

    void Install(const std::filesystem::path& file, std::string_view content) const {
        WriteFileContent(installation / file, content);
    }

    void Restore() const { RestoreProgram(installation, backup, record); }

    std::map<std::wstring, std::string> Installed() const { return ReadTreeContent(installation); }

    TemporaryDirectory directory;
    std::filesystem::path installation = directory.path / L"\u5B89\u88C5 directory";
    std::filesystem::path backup = directory.path / L"\u5907\u4EFD backup";
    ProgramAssets record;
};

TEST_F(ProgramRestore, UndoesAFailedInstallationAndLeavesUserDataAlone) {
    Install(kExecutableName, "partial new application, longer than before");
    Install(L"data\\app.so", "new");
    Install(L"added.dll", "added");
    Install(L"account.db", "changed account");
    Restore();
    EXPECT_THAT(Installed(), ElementsAre(Pair(L"account.db", "changed account"),
                                         Pair(kExecutableName, "old application"),
                                         Pair(L"data\\", ""), Pair(L"data\\app.so", "old assets")));
}

TEST_F(ProgramRestore, DeletesOnlyAddedFilesThatAreProgramAssets) {
    for (const wchar_t* file :
         {L"added.exe", L"native_assets.json", L"program-files.tsv", L"unins000.dat",
          L"data\\added.bin", L"data\\new directory\\deep\\added.bin"}) {
        Install(file, "deleted");
    }
    for (const wchar_t* file : {L"notes.txt", L"unins001.dat", L"plugins\\added.dll"}) {
        Install(file, "kept");
    }
    CreateDirectories(installation / L"empty");
    CreateDirectories(installation / L"data\\empty");
    Restore();
    EXPECT_THAT(
        Installed(),
        ElementsAre(Pair(L"account.db", "account"), Pair(kExecutableName, "old application"),
                    Pair(L"data\\", ""), Pair(L"data\\app.so", "old assets"),
                    Pair(L"data\\empty\\", ""), Pair(L"data\\new directory\\", ""),
                    Pair(L"data\\new directory\\deep\\", ""), Pair(L"empty\\", ""),
                    Pair(L"notes.txt", "kept"), Pair(L"plugins\\", ""),
                    Pair(L"plugins\\added.dll", "kept"), Pair(L"unins001.dat", "kept")));
}

TEST_F(ProgramRestore, RecreatesADeletedDirectoryWithItsFiles) {
    Install(L"data\\fonts\\\u5B57\u4F53\\ui font.ttf", "font");
    record = BackupProgram(installation, backup);
    const auto before = Installed();
    RemoveTree(installation / L"data");
    RemoveFile(installation / kExecutableName);
    Restore();
    EXPECT_EQ(Installed(), before);
}

TEST_F(ProgramRestore, BringsEmptyFilesBack) {
    for (const wchar_t* file : {L"empty.dll", L"data\\empty.bin", L"data\\deleted.bin"}) {
        Install(file, "");
    }
    record = BackupProgram(installation, backup);
    EXPECT_EQ(record, (ProgramAssets{kExecutableName, L"data\\app.so", L"data\\deleted.bin",
                                     L"data\\empty.bin", L"empty.dll"}));
    const auto before = Installed();
    Install(L"empty.dll", "new library");
    Install(L"data\\empty.bin", "new");
    RemoveFile(installation / L"data\\deleted.bin");
    Restore();
    EXPECT_EQ(Installed(), before);
}

TEST_F(ProgramRestore, WithAnEmptyRecordDeletesEveryAssetAndCopiesNothing) {
    Install(L"added.dll", "added");
    RestoreProgram(installation, backup, {});
    EXPECT_THAT(Installed(), ElementsAre(Pair(L"account.db", "account"), Pair(L"data\\", "")));
}

TEST_F(ProgramRestore, WithAnEmptyRecordNeedsNoBackupDirectory) {
    RestoreProgram(installation, directory.path / L"missing", {});
    EXPECT_THAT(Installed(), ElementsAre(Pair(L"account.db", "account"), Pair(L"data\\", "")));
    EXPECT_FALSE(PathExists(directory.path / L"missing"));
}

TEST_F(ProgramRestore, GivesTheSameResultTwice) {
    Install(kExecutableName, "new");
    Install(L"added.dll", "added");
    Restore();
    const auto once = Installed();
    Restore();
    EXPECT_EQ(Installed(), once);
}

TEST_F(ProgramRestore, WithACopyMissingFailsAfterAllAdditionsAreDeleted) {
    Install(L"added.dll", "added");
    Install(L"data\\zz added.bin", "added");
    Install(L"data\\app.so", "new");
    RemoveFile(backup / kExecutableName);
    EXPECT_THAT([this] { Restore(); }, RaisesFileSystemError("copy_file", backup / kExecutableName,
                                                             installation / kExecutableName));
    // The executable comes before "data\app.so", which is therefore not restored.
    EXPECT_THAT(Installed(), ElementsAre(Pair(L"account.db", "account"),
                                         Pair(kExecutableName, "old application"),
                                         Pair(L"data\\", ""), Pair(L"data\\app.so", "new")));
}

TEST_F(ProgramRestore, TakesANameInAnotherLetterCaseForAnAddedFile) {
    Install(L"engine.dll", "old engine");
    record = BackupProgram(installation, backup);
    RemoveFile(installation / L"engine.dll");
    Install(L"Engine.dll", "new engine");
    Restore();
    EXPECT_THAT(Installed(), ElementsAre(Pair(L"account.db", "account"),
                                         Pair(kExecutableName, "old application"),
                                         Pair(L"data\\", ""), Pair(L"data\\app.so", "old assets"),
                                         Pair(L"engine.dll", "old engine")));
}

TEST_F(ProgramRestore, LeavesFilesInTheBackupThatAreNotInTheRecord) {
    WriteFileContent(backup / L"engine.dll", "unrelated");
    WriteFileContent(backup / L"data\\other.bin", "unrelated");
    const auto before = ReadTreeContent(backup);
    Restore();
    EXPECT_FALSE(PathExists(installation / L"engine.dll"));
    EXPECT_FALSE(PathExists(installation / L"data\\other.bin"));
    EXPECT_EQ(ReadTreeContent(backup), before);
}

TEST_F(ProgramRestore, ReplacesAFileThatTookADirectorysPlace) {
    Install(L"data\\fonts\\ui.ttf", "font");
    record = BackupProgram(installation, backup);
    RemoveTree(installation / L"data\\fonts");
    Install(L"data\\fonts", "a file now");
    Restore();
    EXPECT_EQ(ReadFileContent(installation / L"data\\fonts\\ui.ttf"), "font");
}

TEST_F(ProgramRestore, ReplacesAndDeletesReadOnlyFiles) {
    Install(kExecutableName, "new");
    Install(L"added.dll", "added");
    for (const wchar_t* file : {kExecutableName, L"added.dll"}) {
        ASSERT_TRUE(SetFileAttributesW((installation / file).c_str(), FILE_ATTRIBUTE_READONLY));
    }
    Restore();
    EXPECT_EQ(ReadFileContent(installation / kExecutableName), "old application");
    EXPECT_FALSE(PathExists(installation / L"added.dll"));
}

TEST_F(ProgramRestore, ChangesNothingWhenTheAssetsCannotBeEnumerated) {
    TemporaryDirectory elsewhere;
    Install(kExecutableName, "new");
    Install(L"added.dll", "added");
    const auto before = Installed();
    for (const auto& [name, message] :
         {std::pair(L"logs", "Reparse points are not supported in installation directory"),
          std::pair(L"data\\link", "Reparse points are not supported in program assets")}) {
        const DirectoryLink link(installation / name, elsewhere.path);
        EXPECT_THAT([this] { Restore(); }, RaisesError(message));
    }
    EXPECT_EQ(Installed(), before);
}

TEST_F(ProgramRestore, FailsForAnAddedFileThatCannotBeDeleted) {
    Install(L"a added.dll", "deleted before");
    Install(L"b locked.dll", "locked");
    Install(L"c added.dll", "not reached");
    Install(kExecutableName, "new");
    UniqueHandle lock = HoldFile(installation / L"b locked.dll");
    EXPECT_THAT([this] { Restore(); },
                RaisesFileSystemError("remove", installation / L"b locked.dll"));
    lock.reset();
    EXPECT_THAT(Installed(),
                ElementsAre(Pair(L"account.db", "account"), Pair(L"b locked.dll", "locked"),
                            Pair(L"c added.dll", "not reached"), Pair(kExecutableName, "new"),
                            Pair(L"data\\", ""), Pair(L"data\\app.so", "old assets")));
}

TEST_F(ProgramRestore, FailsForALockedTarget) {
    Install(kExecutableName, "new");
    UniqueHandle lock = HoldFile(installation / kExecutableName);
    EXPECT_THAT([this] { Restore(); }, RaisesFileSystemError("copy_file", backup / kExecutableName,
                                                             installation / kExecutableName));
    lock.reset();
    EXPECT_EQ(ReadFileContent(installation / kExecutableName), "new");
}

TEST_F(ProgramRestore, FailsForATargetThatIsADirectory) {
    RemoveFile(installation / kExecutableName);
    CreateDirectories(installation / kExecutableName);
    EXPECT_THAT([this] { Restore(); }, RaisesFileSystemError("copy_file", backup / kExecutableName,
                                                             installation / kExecutableName));
}

TEST_F(ProgramRestore, FailsWhenTheInstallationDirectoryIsGone) {
    RemoveTree(installation);
    EXPECT_THAT([this] { Restore(); },
                RaisesFileSystemError("directory_iterator::directory_iterator", installation));
}

}  // namespace
}  // namespace updater
