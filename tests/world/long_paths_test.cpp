// Paths in the data tree that are longer than the 260 characters of old. The test program asks for
// long paths in its manifest, as the updater does. Windows then takes them up to 32,767 characters
// in every call that is made here, if long paths are switched on for the machine; Wine takes what
// the host takes. Only the installation directory itself is made canonical, and that fails under
// Wine for more than about 260 characters and not on Windows; so it has a short path here.

#include <gtest/gtest.h>

#include "fixtures/file_content.h"
#include "fixtures/temporary_directory.h"
#include "snapshot/program_backup.h"
#include "snapshot/program_restore.h"
#include "snapshot/program_verification.h"
#include "support/file_digest.h"
#include "support/file_system.h"
#include "support/text_conversion.h"
#include "world/worker_run.h"

namespace updater {
namespace {

// Returns the path of a file in the data tree that has this length together with the directory.
std::filesystem::path DataFile(const std::filesystem::path& directory, std::size_t length) {
    constexpr std::size_t kLongestName = 100;
    std::wstring file = L"data";
    const std::size_t end = length - directory.native().size() - 1;
    while (file.size() + 1 < end) {
        // One character more than fits would be a separator without a name.
        const std::size_t left = end - file.size() - 1;
        file += L'\\' +
                std::wstring(left == kLongestName + 1 ? left : std::min(left, kLongestName), L'n');
    }
    return file;
}

struct LongPath : testing::TestWithParam<std::size_t> {
    TemporaryDirectory directory;
    std::filesystem::path program = directory.path / L"program";
    // A longer path than the program's, so the copies go over the limit first.
    std::filesystem::path backup = directory.path / L"staging directory" / L"backup";
    std::filesystem::path file = DataFile(program, GetParam());
};

TEST_P(LongPath, IsBackedUpVerifiedAndRestored) {
    ASSERT_EQ((program / file).native().size(), GetParam());
    WriteFileContent(program / file, "old");
    WriteFileContent(program / L"program-files.tsv",
                     WideToUtf8(file.native()) + '\t' + FileSha256Hex(program / file) + '\n');
    const TreeContent before = ReadTreeContent(program);

    const ProgramAssets record = BackupProgram(program, backup);
    EXPECT_EQ(record, (ProgramAssets{file, L"program-files.tsv"}));
    EXPECT_EQ(ReadTreeContent(backup), before);
    EXPECT_NO_THROW(VerifyInstalledProgram(program));

    WriteFileContent(program / file, "damaged");
    WriteFileContent(program / (file.native() + L" added"), "added");
    RestoreProgram(program, backup, record);
    EXPECT_EQ(ReadTreeContent(program), before);

    RemoveTree(program / L"data");
    RestoreProgram(program, backup, record);
    EXPECT_EQ(ReadTreeContent(program), before);
}

INSTANTIATE_TEST_SUITE_P(OfCharacters, LongPath,
                         testing::Values(247, 248, 249, 258, 259, 260, 261, 300, 1000),
                         [](const auto& test) { return std::to_string(test.param); });

struct UpdateOfLongPaths : testing::Test {
    WorkerRun run;
    std::filesystem::path file = DataFile(run.program, 700);
    UpdateOfLongPaths() { run.AddToBothVersions(file, "the same in both versions"); }
};

TEST_F(UpdateOfLongPaths, Succeeds) {
    run.Run();
    run.ExpectSuccess();
}

TEST_F(UpdateOfLongPaths, RestoresTheProgramWhenTheSetupFailed) {
    run.LetSetupFail();
    run.plan[Moment::BeforeRollback] = [this] { RemoveTree(run.program / L"data"); };
    run.Run();
    run.ExpectFailure("Inno Setup did not complete; exit code=1; previous program restored");
}

TEST_F(UpdateOfLongPaths, RestoresTheProgramWhenSuchAFileIsNotAsTheInventorySays) {
    run.plan[Moment::BeforeVerification] = [this] { WriteFileContent(run.program / file, "else"); };
    run.Run();
    run.ExpectFailure("Installed program checksum mismatch: " + WideToUtf8(file.native()) +
                      "; previous program restored");
}

}  // namespace
}  // namespace updater
