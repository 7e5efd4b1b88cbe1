// The verification on a damaged disk.

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "fixtures/application_names.h"
#include "fixtures/damaged_file.h"
#include "fixtures/doubles/updater_doubles.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "snapshot/program_verification.h"

namespace updater {
namespace {

using ScopedDigest = ScopedReplacement<decltype(FileSha256Hex)>;

constexpr char kEntry[] = IDENTITY_EXECUTABLE "\tthe digest\n";
constexpr std::size_t kEntryBytes = sizeof(kEntry) - 1;
constexpr std::size_t kEntries = 6000;

// An installation whose inventory takes three portions to read, and lists the right digests.
struct DamagedInstallation : testing::Test {
    DamagedInstallation() {
        std::string inventory;
        for (std::size_t entry = 0; entry < kEntries; ++entry) {
            inventory += kEntry;
        }
        WriteFileContent(directory.path / L"program-files.tsv", inventory);
    }

    void ExpectFailure(const std::string& message) const {
        EXPECT_THAT([this] { VerifyInstalledProgram(directory.path); }, RaisesError(message));
    }

    TemporaryDirectory directory;
    std::size_t checked = 0;
    ScopedDigest digest{doubles::FileSha256Hex, [this](const std::filesystem::path&) {
                            ++checked;
                            return std::string("the digest");
                        }};
};

TEST_F(DamagedInstallation, IsRefusedWhenNotEvenTheInventorysBeginningCanBeRead) {
    const DamagedFile damaged(L"program-files.tsv", 0);
    ExpectFailure("Installed program inventory is empty");
    EXPECT_EQ(checked, 0U);
}

TEST_F(DamagedInstallation, IsRefusedAfterTheLinesThatCanBeRead) {
    for (const std::size_t readable :
         {std::size_t{1}, kEntryBytes - 1, kEntryBytes, std::size_t{8192}, std::size_t{65535},
          std::size_t{65536}, std::size_t{65537}, 4000 * kEntryBytes, kEntries * kEntryBytes}) {
        SCOPED_TRACE(readable);
        checked = 0;
        const DamagedFile damaged(L"program-files.tsv", static_cast<int>(readable));
        ExpectFailure("Invalid program inventory");
        EXPECT_EQ(checked, readable / kEntryBytes) << "no line that is read only in part";
        EXPECT_EQ(damaged.failures, 1);
    }
}

TEST_F(DamagedInstallation, IsRefusedForTheFirstLineThatFails) {
    const ScopedDigest mismatch(doubles::FileSha256Hex, [this](const std::filesystem::path&) {
        return std::string(++checked < 300 ? "the digest" : "another digest");
    });
    const DamagedFile damaged(L"program-files.tsv", 8192);
    ExpectFailure("Installed program checksum mismatch: " IDENTITY_EXECUTABLE);
    EXPECT_EQ(checked, 300U);
}

// Nothing is held beyond the line at hand, however long the inventory is.
TEST_F(DamagedInstallation, IsCheckedLineByLineWhileTheInventoryIsRead) {
    std::vector<std::size_t> checkedBefore;
    const ScopedReplacement reading(doubles::ReadFile, [&](HANDLE file, LPVOID buffer, DWORD bytes,
                                                           LPDWORD read, LPOVERLAPPED overlapped) {
        EXPECT_LE(bytes, 65536U);
        checkedBefore.push_back(checked);
        return ReadFile(file, buffer, bytes, read, overlapped);
    });
    VerifyInstalledProgram(directory.path);
    // The last one finds the end.
    EXPECT_EQ(checkedBefore, (std::vector<std::size_t>{0, 65536 / kEntryBytes, 131072 / kEntryBytes,
                                                       131072 / kEntryBytes}));
    EXPECT_EQ(checked, kEntries);
}

TEST_F(DamagedInstallation, IsRefusedForAFileThatCanBeReadOnlyInPart) {
    WriteFileContent(directory.path / kExecutableName, std::string(100000, 'x'));
    const std::string content = std::string(65536, 'x');
    WriteFileContent(directory.path / L"beginning", content);
    doubles::FileSha256Hex.Set(nullptr);
    // Even when the part that can be read has the listed digest.
    WriteFileContent(
        directory.path / L"program-files.tsv",
        IDENTITY_EXECUTABLE "\t" + FileSha256Hex(directory.path / L"beginning") + "\n");
    const DamagedFile damaged(kExecutableName, 65536);
    ExpectFailure("SHA256 verification failed");
}

}  // namespace
}  // namespace updater
