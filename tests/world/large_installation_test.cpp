// An installation of 20,000 files in 2,000 directories.

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "fixtures/file_content.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "fixtures/tree_content.h"
#include "snapshot/program_backup.h"
#include "snapshot/program_restore.h"
#include "snapshot/program_verification.h"
#include "support/file_digest.h"
#include "support/file_system.h"
#include "support/text_conversion.h"

namespace updater {
namespace {

constexpr int kDirectories = 2000;
constexpr int kFilesInEach = 10;

// A number without a divisor in common with those above, so that neighbours differ.
constexpr int kContents = 97;

std::string ContentOf(int file) {
    return "content " + std::to_string(file % kContents);
}

std::filesystem::path NameOf(int file) {
    const int directory = file / kFilesInEach;
    return std::filesystem::path(L"data") / std::to_wstring(directory % 20) /
           (L"\u76EE\u5F55 " + std::to_wstring(directory)) / (std::to_wstring(file) + L".bin");
}

// Digests each content once; the file that lends it its bytes is one of those of the program.
std::string InventoryOf(const std::filesystem::path& program, int files) {
    std::map<int, std::string> digests;
    std::string inventory;
    for (int file = 0; file < files; ++file) {
        std::string& digest = digests[file % kContents];
        if (digest.empty()) {
            digest = FileSha256Hex(program / NameOf(file));
        }
        inventory += WideToUtf8(NameOf(file).native()) + '\t' + digest + '\n';
    }
    return inventory;
}

struct LargeInstallation : testing::Test {
    LargeInstallation() {
        for (int file = 0; file < kFiles; ++file) {
            WriteFileContent(program / NameOf(file), ContentOf(file));
        }
        WriteFileContent(program / L"program-files.tsv", InventoryOf(program, kFiles));
        WriteFileContent(program / L"account.db", "the user's");
    }

    static constexpr int kFiles = kDirectories * kFilesInEach;
    TemporaryDirectory directory;
    std::filesystem::path program = directory.path / L"program";
    std::filesystem::path backup = directory.path / L"backup";
};

TEST_F(LargeInstallation, IsBackedUpVerifiedAndRestored) {
    const TreeContent before = ReadTreeContent(program);

    const ProgramAssets record = BackupProgram(program, backup);
    EXPECT_EQ(record.size(), std::size_t{kFiles} + 1);
    TreeContent expectedBackup = before;
    expectedBackup.erase(L"account.db");
    EXPECT_EQ(FindDifferences(expectedBackup, ReadTreeContent(backup)), std::vector<std::string>());
    EXPECT_NO_THROW(VerifyInstalledProgram(program));

    const std::filesystem::path last = NameOf(kFiles - 1);
    WriteFileContent(program / last, "damaged");
    EXPECT_THAT([this] { VerifyInstalledProgram(program); },
                RaisesError("Installed program checksum mismatch: " + WideToUtf8(last.native())));

    RemoveTree(program / L"data" / L"7");
    WriteFileContent(program / L"data" / L"added.bin", "added");
    RestoreProgram(program, backup, record);
    EXPECT_EQ(FindDifferences(before, ReadTreeContent(program)), std::vector<std::string>());
}

}  // namespace
}  // namespace updater
