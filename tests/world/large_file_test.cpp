// A file of 5 GiB: its size, positions and byte counts do not fit into 32 bits, and it is larger
// than what a process should ever hold of it. It takes 10 GiB of disk: the system's copies are
// written out even where the file itself is not.

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "fixtures/file_content.h"
#include "fixtures/temporary_directory.h"
#include "snapshot/program_backup.h"
#include "snapshot/program_restore.h"
#include "snapshot/program_verification.h"
#include "support/file_digest.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/windows_api.h"

// After the Windows types that they need.
#include <psapi.h>
#include <winioctl.h>

namespace updater {
namespace {

constexpr std::int64_t kGibibyte = 1024LL * 1024 * 1024;
constexpr std::int64_t kSize = 5 * kGibibyte;
constexpr std::int64_t kBeyond32Bits = 4 * kGibibyte + 12345;

// What the common command-line programs say of 5 GiB of zeros with the texts below in them.
constexpr char kDigest[] = "318e7b262b2c4d147773d33ff2f631f9a98dce109af26479b83836d663d5f162";

UniqueHandle OpenForWriting(const std::filesystem::path& file) {
    return OwnHandle(CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, 0, nullptr));
}

void WriteAt(HANDLE file, std::int64_t position, std::string_view text) {
    LARGE_INTEGER distance{};
    distance.QuadPart = position;
    DWORD written = 0;
    if (SetFilePointerEx(file, distance, nullptr, FILE_BEGIN) == 0 ||
        WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) == 0) {
        throw std::runtime_error("Cannot write the large file");
    }
}

void MakeLargeFile(const std::filesystem::path& file) {
    CreateDirectories(file.parent_path());
    const UniqueHandle handle = OpenForWriting(file);
    DWORD ignored = 0;
    // Without it Windows writes the zeros. Under Wine it is not known, and the host writes none.
    DeviceIoControl(handle.get(), FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &ignored, nullptr);
    WriteAt(handle.get(), 0, "begin");
    WriteAt(handle.get(), kBeyond32Bits, "beyond 32 bits");
    WriteAt(handle.get(), kSize - 3, "end");
}

// The most memory that this process has had at any time.
std::int64_t PeakMemory() {
    PROCESS_MEMORY_COUNTERS counters{};
    K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters));
    return static_cast<std::int64_t>(counters.PeakWorkingSetSize);
}

struct LargeFile : testing::Test {
    TemporaryDirectory directory;
    std::filesystem::path program = directory.path / L"program";
    std::filesystem::path backup = directory.path / L"backup";
    std::filesystem::path file = program / L"data" / L"large.bin";

    // Each operation once with a file of a megabyte.
    void TryOnSmallFile() const {
        const std::filesystem::path small = directory.path / L"small";
        WriteFileContent(small / L"data" / L"small.bin", std::string(1024 * 1024, 's'));
        const ProgramAssets record = BackupProgram(small, directory.path / L"small backup");
        RestoreProgram(small, directory.path / L"small backup", record);
    }
};

TEST_F(LargeFile, PassesThroughDigestBackupAndRestoreInLittleMemory) {
    constexpr std::int64_t kLittle = 4LL * 1024 * 1024;
    TryOnSmallFile();
    const std::int64_t memoryBefore = PeakMemory();

    MakeLargeFile(file);
    WriteFileContent(program / L"program-files.tsv",
                     std::string("data/large.bin\t") + kDigest + '\n');
    EXPECT_EQ(FileSha256Hex(file), kDigest);

    const ProgramAssets record = BackupProgram(program, backup);
    EXPECT_EQ(FileSize(backup / L"data" / L"large.bin"), std::uintmax_t{kSize});

    WriteAt(OpenForWriting(file).get(), kBeyond32Bits, "damaged");
    RestoreProgram(program, backup, record);
    EXPECT_EQ(FileSize(file), std::uintmax_t{kSize});
    EXPECT_NO_THROW(VerifyInstalledProgram(program));

    EXPECT_LT(PeakMemory() - memoryBefore, kLittle);
}

TEST(PeakMemory, RisesWithWhatAProcessHolds) {
    constexpr std::int64_t kMuch = 64LL * 1024 * 1024;
    const std::int64_t before = PeakMemory();
    const std::vector<char> held(kMuch, 'x');
    EXPECT_GT(PeakMemory() - before, kMuch / 2);
    EXPECT_EQ(held.back(), 'x');
}

}  // namespace
}  // namespace updater
