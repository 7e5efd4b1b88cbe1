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

namespace updater {
namespace {

using testing::ElementsAre;
using testing::Pair;

constexpr char kMismatch[] = "Program backup checksum mismatch";

// Three assets, of which the second meets with the failure.
struct ProgramBackupFailure : testing::Test {
    ProgramBackupFailure() {
        for (const wchar_t* file : {L"a.dll", L"b.dll", L"data\\c.bin"}) {
            WriteFileContent(installation / file, "content");
        }
    }

    void Backup() const { BackupProgram(installation, backup); }

    std::map<std::wstring, std::string> BackupContent() const { return ReadTreeContent(backup); }

    TemporaryDirectory directory;
    std::filesystem::path installation = directory.path / L"app";
    std::filesystem::path backup = directory.path / L"backup";
    std::filesystem::path source = installation / L"b.dll";
    std::filesystem::path copy = backup / L"b.dll";
};

TEST_F(ProgramBackupFailure, NoticesASourceThatChangesAfterItsCopyAndKeepsTheCopiesMade) {
    const ScopedReplacement copying(
        doubles::CopyFileW, CopyThen(copy, [this] { WriteFileContent(source, "changed"); }));
    EXPECT_THAT([this] { Backup(); }, RaisesError(kMismatch));
    EXPECT_THAT(BackupContent(), ElementsAre(Pair(L"a.dll", "content"), Pair(L"b.dll", "content")));
}

TEST_F(ProgramBackupFailure, NoticesACopyThatDiffersFromItsSource) {
    const ScopedReplacement copying(doubles::CopyFileW,
                                    CopyThen(copy, [this] { WriteFileContent(copy, "damaged"); }));
    EXPECT_THAT([this] { Backup(); }, RaisesError(kMismatch));
    EXPECT_THAT(BackupContent(), ElementsAre(Pair(L"a.dll", "content"), Pair(L"b.dll", "damaged")));
}

TEST_F(ProgramBackupFailure, PassesOnADigestThatCannotBeComputed) {
    for (const std::filesystem::path& vanishing : {copy, source}) {
        const ScopedReplacement copying(
            doubles::CopyFileW, CopyThen(copy, [&vanishing] { DeleteFileW(vanishing.c_str()); }));
        EXPECT_THAT([this] { Backup(); }, RaisesError("SHA256 verification failed"));
    }
}

TEST_F(ProgramBackupFailure, ComparesWholeDigestsExactly) {
    for (const auto& digests : kDifferentDigests) {
        const ScopedReplacement reading(doubles::FileSha256Hex, DigestsOf(backup, digests));
        EXPECT_THAT([this] { Backup(); }, RaisesError(kMismatch));
    }
}

TEST_F(ProgramBackupFailure, CopiesEachAssetThenDigestsTheCopyThenTheSourceAndListsNoBackup) {
    const OperationTrace trace(directory.path);
    Backup();
    EXPECT_THAT(trace.operations,
                ElementsAre(L"list app\\*", L"list app\\data\\*", L"create backup",
                            L"copy app\\a.dll to backup\\a.dll", L"digest backup\\a.dll",
                            L"digest app\\a.dll", L"copy app\\b.dll to backup\\b.dll",
                            L"digest backup\\b.dll", L"digest app\\b.dll", L"create backup\\data",
                            L"copy app\\data\\c.bin to backup\\data\\c.bin",
                            L"digest backup\\data\\c.bin", L"digest app\\data\\c.bin"));
}

TEST_F(ProgramBackupFailure, NamesBothPathsOfACopyThatFails) {
    for (const DWORD error : {ERROR_DISK_FULL, ERROR_ACCESS_DENIED, ERROR_CRC}) {
        const ScopedReplacement copying(doubles::CopyFileW, CopyFailing(copy, error));
        EXPECT_THAT([this] { Backup(); }, RaisesFileSystemError("copy_file", source, copy));
        EXPECT_THAT(BackupContent(), ElementsAre(Pair(L"a.dll", "content")));
    }
}

TEST_F(ProgramBackupFailure, NamesTheDirectoryThatCannotBeCreated) {
    const ScopedReplacement creation(
        doubles::CreateDirectoryW, [this](LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
            return backup / L"data" == path ? FailWith(ERROR_ACCESS_DENIED)
                                            : CreateDirectoryW(path, security);
        });
    EXPECT_THAT([this] { Backup(); },
                RaisesFileSystemError("create_directories", backup / L"data"));
    EXPECT_THAT(BackupContent(), ElementsAre(Pair(L"a.dll", "content"), Pair(L"b.dll", "content")));
}

}  // namespace
}  // namespace updater
