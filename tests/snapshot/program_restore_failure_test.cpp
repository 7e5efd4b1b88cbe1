#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

#include "fixtures/doubles/updater_doubles.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "snapshot/copy_events.h"
#include "snapshot/digest_pairs.h"
#include "snapshot/operation_trace.h"
#include "snapshot/program_backup.h"
#include "snapshot/program_restore.h"
#include "support/file_system.h"

namespace updater {
namespace {

using testing::ElementsAre;
using testing::Pair;

constexpr char kMismatch[] = "Restored program checksum mismatch";

// Three recorded assets, of which the second meets with the failure, and two added ones.
struct ProgramRestoreFailure : testing::Test {
    ProgramRestoreFailure() {
        const wchar_t* const files[] = {L"a.dll", L"b.dll", L"data\\c.bin"};
        for (const wchar_t* file : files) {
            WriteFileContent(installation / file, "old");
        }
        record = BackupProgram(installation, backup);
        for (const wchar_t* file : files) {
            WriteFileContent(installation / file, "new");
        }
        WriteFileContent(installation / L"data\\added.bin", "added");
        WriteFileContent(installation / L"Added.exe", "added");
    }

    void Restore() const { RestoreProgram(installation, backup, record); }

    std::map<std::wstring, std::string> Installed() const { return ReadTreeContent(installation); }

    TemporaryDirectory directory;
    std::filesystem::path installation = directory.path / L"app";
    std::filesystem::path backup = directory.path / L"backup";
    std::filesystem::path copy = backup / L"b.dll";
    std::filesystem::path restored = installation / L"b.dll";
    ProgramAssets record;
};

TEST_F(ProgramRestoreFailure, StopsAtAFileThatDiffersFromItsCopy) {
    const ScopedReplacement copying(
        doubles::CopyFileW, CopyThen(restored, [this] { WriteFileContent(restored, "damaged"); }));
    EXPECT_THAT([this] { Restore(); }, RaisesError(kMismatch));
    EXPECT_THAT(Installed(), ElementsAre(Pair(L"a.dll", "old"), Pair(L"b.dll", "damaged"),
                                         Pair(L"data\\", ""), Pair(L"data\\c.bin", "new")));
}

TEST_F(ProgramRestoreFailure, PassesOnADigestThatCannotBeComputed) {
    for (const std::filesystem::path& vanishing : {restored, copy}) {
        const ScopedReplacement copying(doubles::CopyFileW, CopyThen(restored, [&vanishing] {
                                            DeleteFileW(vanishing.c_str());
                                        }));
        EXPECT_THAT([this] { Restore(); }, RaisesError("SHA256 verification failed"));
    }
}

TEST_F(ProgramRestoreFailure, ComparesWholeDigestsExactly) {
    for (const auto& digests : kDifferentDigests) {
        const ScopedReplacement reading(doubles::FileSha256Hex, DigestsOf(backup, digests));
        EXPECT_THAT([this] { Restore(); }, RaisesError(kMismatch));
    }
}

TEST_F(ProgramRestoreFailure, DeletesAllAdditionsBeforeItCopiesAndListsNoBackup) {
    const OperationTrace trace(directory.path);
    Restore();
    EXPECT_THAT(trace.operations,
                ElementsAre(L"list app\\*", L"list app\\data\\*", L"delete app\\Added.exe",
                            L"delete app\\data\\added.bin", L"copy backup\\a.dll to app\\a.dll",
                            L"digest backup\\a.dll", L"digest app\\a.dll",
                            L"copy backup\\b.dll to app\\b.dll", L"digest backup\\b.dll",
                            L"digest app\\b.dll", L"copy backup\\data\\c.bin to app\\data\\c.bin",
                            L"digest backup\\data\\c.bin", L"digest app\\data\\c.bin"));
}

TEST_F(ProgramRestoreFailure, RecreatesADirectoryWhenItsFileIsReached) {
    RemoveTree(installation / L"data");
    const OperationTrace trace(directory.path);
    Restore();
    EXPECT_THAT(trace.operations,
                ElementsAre(L"list app\\*", L"delete app\\Added.exe",
                            L"copy backup\\a.dll to app\\a.dll", L"digest backup\\a.dll",
                            L"digest app\\a.dll", L"copy backup\\b.dll to app\\b.dll",
                            L"digest backup\\b.dll", L"digest app\\b.dll", L"create app\\data",
                            L"copy backup\\data\\c.bin to app\\data\\c.bin",
                            L"digest backup\\data\\c.bin", L"digest app\\data\\c.bin"));
}

TEST_F(ProgramRestoreFailure, NamesBothPathsOfACopyThatFails) {
    for (const DWORD error : {ERROR_DISK_FULL, ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION}) {
        const ScopedReplacement copying(doubles::CopyFileW, CopyFailing(restored, error));
        EXPECT_THAT([this] { Restore(); }, RaisesFileSystemError("copy_file", copy, restored));
    }
}

TEST_F(ProgramRestoreFailure, NamesTheDirectoryThatCannotBeCreated) {
    RemoveTree(installation / L"data");
    const ScopedReplacement creation(doubles::CreateDirectoryW, [](LPCWSTR, LPSECURITY_ATTRIBUTES) {
        return FailWith(ERROR_ACCESS_DENIED);
    });
    EXPECT_THAT([this] { Restore(); },
                RaisesFileSystemError("create_directories", installation / L"data"));
}

TEST_F(ProgramRestoreFailure, StopsAtAnAddedFileThatCannotBeDeleted) {
    const auto before = Installed();
    const ScopedReplacement deletion(doubles::DeleteFileW,
                                     [](LPCWSTR) { return FailWith(ERROR_ACCESS_DENIED); });
    EXPECT_THAT([this] { Restore(); },
                RaisesFileSystemError("remove", installation / L"Added.exe"));
    EXPECT_EQ(Installed(), before);
}

TEST_F(ProgramRestoreFailure, DoesNotMindAnAddedFileThatVanishesBeforeItIsDeleted) {
    const ScopedReplacement deletion(doubles::DeleteFileW, [](LPCWSTR path) {
        EXPECT_TRUE(DeleteFileW(path));
        return DeleteFileW(path);
    });
    Restore();
    EXPECT_THAT(Installed(), ElementsAre(Pair(L"a.dll", "old"), Pair(L"b.dll", "old"),
                                         Pair(L"data\\", ""), Pair(L"data\\c.bin", "old")));
}

}  // namespace
}  // namespace updater
