// A disk without space for one of the copies that an update makes. A test cannot mount a small disk
// without rights of its own, so the copy fails as it does on a full one.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <ostream>

#include "fixtures/file_content.h"
#include "support/extended_length_path.h"
#include "world/worker_run.h"

namespace updater {
namespace {

// What a copy that finds no more space leaves at its target: Windows deletes it, other systems keep
// what was written.
enum class Remains { Nothing, FirstHalf };

// From the copy of this number on, there is no space for any.
struct FullDisk {
    FullDisk(int fullFrom, Remains remainsOfCopy)
        : firstWithoutSpace(fullFrom),
          remains(remainsOfCopy),
          enoughSpace(doubles::CopyFileW.active) {
        doubles::CopyFileW.Set(std::bind_front(&FullDisk::OnCopyFile, this));
    }
    ~FullDisk() { doubles::CopyFileW.Set(enoughSpace); }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

    BOOL OnCopyFile(LPCWSTR copied, LPCWSTR copy, BOOL failIfExists) {
        targets.push_back(OrdinaryPath(copy));
        if (static_cast<int>(targets.size()) < firstWithoutSpace) {
            return enoughSpace(copied, copy, failIfExists);
        }
        source = OrdinaryPath(copied);
        DeleteFileW(copy);
        if (remains == Remains::FirstHalf) {
            const std::string content = ReadFileContent(copied);
            WriteFileContent(copy, content.substr(0, content.size() / 2));
        }
        SetLastError(ERROR_DISK_FULL);
        return FALSE;
    }

    [[nodiscard]] std::string Message() const {
        return FileSystemMessage("copy_file", ERROR_DISK_FULL, source, targets.back());
    }

    int firstWithoutSpace;
    Remains remains;
    std::function<decltype(CopyFileW)> enoughSpace;
    std::vector<std::filesystem::path> targets;
    std::filesystem::path source;
};

constexpr int kNever = 1'000'000;

bool Within(const std::filesystem::path& file, const std::filesystem::path& directory) {
    return file.native().starts_with(directory.native() + L"\\");
}

// The copies of an update whose setup program fails: into the staging directory, into the backup,
// and back into the installation directory.
struct Copies {
    int staged;
    int backedUp;
    int restored;
    [[nodiscard]] int All() const { return staged + backedUp + restored; }
};

Copies CountCopies() {
    WorkerRun run;
    run.LetSetupFail();
    const FullDisk disk(kNever, Remains::Nothing);
    run.Run();
    const auto count = [&](const std::filesystem::path& directory) {
        return static_cast<int>(std::ranges::count_if(
            disk.targets, [&](const auto& target) { return Within(target, directory); }));
    };
    const int backedUp = count(run.Backup());
    return {count(run.scene.StagingDirectory()) - backedUp, backedUp, count(run.program)};
}

struct UpdateOnAFullDisk : testing::TestWithParam<Remains> {
    // Runs an update whose setup program fails, with space for all copies before this one.
    static void ExpectCleanEnd(int copyWithoutSpace, bool rollback) {
        SCOPED_TRACE(copyWithoutSpace);
        WorkerRun run;
        run.LetSetupFail();
        std::string message;
        {
            const FullDisk disk(copyWithoutSpace, GetParam());
            run.Run();
            message = disk.Message();
        }
        EXPECT_EQ(run.SetupWasStarted(), rollback);
        if (rollback) {
            run.ExpectFailedRollback(message);
        } else {
            run.ExpectFailure(message);
        }
    }
};

TEST_P(UpdateOnAFullDisk, EndsBeforeAnythingIsInstalledWhenTheSetupProgramOrTheBackupHasNoSpace) {
    const Copies copies = CountCopies();
    ASSERT_EQ(copies.staged, 1);
    ASSERT_GT(copies.backedUp, 1);
    for (int number = 1; number <= copies.staged + copies.backedUp; ++number) {
        ExpectCleanEnd(number, false);
    }
}

TEST_P(UpdateOnAFullDisk, KeepsACompleteBackupWhenTheRestoredProgramHasNoSpace) {
    const Copies copies = CountCopies();
    ASSERT_EQ(copies.restored, copies.backedUp);
    for (int number = copies.All() - copies.restored + 1; number <= copies.All(); ++number) {
        ExpectCleanEnd(number, true);
    }
}

INSTANTIATE_TEST_SUITE_P(Leaving, UpdateOnAFullDisk,
                         testing::Values(Remains::Nothing, Remains::FirstHalf),
                         [](const auto& test) {
                             return test.param == Remains::Nothing ? "Nothing" : "TheFirstHalf";
                         });

}  // namespace
}  // namespace updater
