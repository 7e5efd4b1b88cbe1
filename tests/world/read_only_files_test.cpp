// Read-only files in the installed program, in the new version, among the user's own, and the
// read-only download. Windows does not overwrite or delete such a file until its attribute is taken
// away; Wine overwrites it and does not delete it.

#include <gtest/gtest.h>

#include <ostream>
#include <set>

#include "fixtures/application_names.h"
#include "fixtures/file_content.h"
#include "fixtures/tree_content.h"
#include "support/file_system.h"
#include "world/file_holder.h"
#include "world/worker_run.h"

namespace updater {
namespace {

constexpr char kRestored[] = "Inno Setup did not complete; exit code=1; previous program restored";

void MakeReadOnly(const std::filesystem::path& file) {
    ASSERT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY));
}

void MakeAllReadOnly(const std::filesystem::path& directory) {
    for (const auto& [path, content] : ReadTreeContent(directory)) {
        if (!path.ends_with(L'\\')) {
            MakeReadOnly(directory / path);
        }
    }
}

std::set<std::wstring> ReadOnlyFiles(const std::filesystem::path& directory) {
    std::set<std::wstring> files;
    for (const auto& [path, content] : ReadTreeContent(directory)) {
        const DWORD attributes = GetFileAttributesW((directory / path).c_str());
        if ((attributes & FILE_ATTRIBUTE_READONLY) != 0) {
            files.insert(path);
        }
    }
    return files;
}

struct ReadOnlyFilesCase {
    const char* name;
    bool installed;
    bool inNewVersion;
};

std::ostream& operator<<(std::ostream& stream, const ReadOnlyFilesCase& test) {
    return stream << test.name;
}

struct ReadOnlyFilesTest : testing::TestWithParam<ReadOnlyFilesCase> {
    ReadOnlyFilesTest() {
        if (GetParam().installed) {
            MakeAllReadOnly(run.program);
        }
        if (GetParam().inNewVersion) {
            MakeAllReadOnly(run.scene.package);
        }
        MakeReadOnly(run.program / L"account.db");
        before = ReadOnlyFiles(run.program);
    }

    WorkerRun run;
    std::set<std::wstring> before;
};

TEST_P(ReadOnlyFilesTest, DoNotKeepAnUpdateFromSucceeding) {
    run.Run();
    run.ExpectSuccess();
    EXPECT_TRUE(ReadOnlyFiles(run.program).contains(L"account.db"));
}

TEST_P(ReadOnlyFilesTest, DoNotKeepTheProgramFromBeingRestoredAsItWas) {
    run.LetSetupFail();
    run.Run();
    run.ExpectFailure(kRestored);
    EXPECT_EQ(ReadOnlyFiles(run.program), before);
}

TEST_P(ReadOnlyFilesTest, DoNotKeepAnInterruptedRollbackFromBeingCompleted) {
    run.LetSetupFail();
    const std::filesystem::path application = run.program / kExecutableName;
    const FileHolder holder(application);
    run.plan[Moment::BeforeRollback] = [&] { holder.Hold(); };
    run.Run();
    holder.Release();
    run.ExpectFailedRollback(FileSystemMessage("copy_file", ERROR_SHARING_VIOLATION,
                                               run.Backup() / kExecutableName, application));
    EXPECT_EQ(ReadOnlyFiles(run.program), before);
}

INSTANTIATE_TEST_SUITE_P(In, ReadOnlyFilesTest,
                         testing::Values(ReadOnlyFilesCase{"TheInstalledProgram", true, false},
                                         ReadOnlyFilesCase{"TheNewVersion", false, true},
                                         ReadOnlyFilesCase{"Both", true, true}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(ReadOnlyDownload, IsInstalled) {
    WorkerRun run;
    MakeReadOnly(run.scene.installer);
    run.Run();
    run.ExpectSuccess();
}

TEST(ReadOnlyDownload, LeavesNoStagingDirectoryAfterACancelledUpdate) {
    WorkerRun run;
    MakeReadOnly(run.scene.installer);
    run.scene.LetBrokerNeverCommit();
    run.Run();
    run.ExpectEnd(2, {"cancelled", "Application remained open; installation cancelled", 0});
    EXPECT_FALSE(PathExists(run.scene.StagingDirectory()));
    EXPECT_EQ(FindDifferences(run.before, run.InstalledTree()), std::vector<std::string>());
}

}  // namespace
}  // namespace updater
