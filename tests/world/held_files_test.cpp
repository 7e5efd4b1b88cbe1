// Files that another process holds open without sharing them, as a viewer, an indexing service or
// a virus scanner may.

#include <gtest/gtest.h>

#include <optional>
#include <ostream>

#include "fixtures/application_names.h"
#include "world/file_holder.h"
#include "world/worker_run.h"

namespace updater {
namespace {

constexpr char kRestored[] = "; previous program restored";
constexpr const wchar_t* kApplication = kExecutableName;
constexpr wchar_t kInventory[] = L"program-files.tsv";
constexpr wchar_t kLibrary[] = L"data\\app.so";

// A file of the installation directory that is held from one moment to another, or to the end of
// the run.
struct HeldFile {
    const char* name;
    const wchar_t* file;
    Moment from;
    std::optional<Moment> until;
    const char* message;
};

std::ostream& operator<<(std::ostream& stream, const HeldFile& held) {
    return stream << held.name;
}

// The message of a rollback that meets with a held file.
std::string UnrestoredMessage(const WorkerRun& run, const std::filesystem::path& file) {
    return FileSystemMessage("copy_file", ERROR_SHARING_VIOLATION, run.Backup() / file,
                             run.program / file);
}

struct HeldFileTest : testing::TestWithParam<HeldFile> {
    // Runs the update and releases the file, if it is still held.
    void Run() {
        run.plan[GetParam().from] = [this] { holder.Hold(); };
        if (GetParam().until) {
            run.plan[*GetParam().until] = [this] { holder.Release(); };
        }
        run.Run();
        holder.Release();
    }

    WorkerRun run;
    FileHolder holder{run.program / GetParam().file};
};

std::string NameOf(const testing::TestParamInfo<HeldFile>& test) {
    return test.param.name;
}

struct FileHeldDuringTheBackup : HeldFileTest {};

TEST_P(FileHeldDuringTheBackup, EndsTheUpdateBeforeAnythingIsInstalled) {
    Run();
    const char* message = GetParam().message;
    run.ExpectFailure(message != nullptr ? message
                                         : FileSystemMessage("copy_file", ERROR_SHARING_VIOLATION,
                                                             run.program / GetParam().file,
                                                             run.Backup() / GetParam().file));
    EXPECT_FALSE(run.SetupWasStarted());
}

INSTANTIATE_TEST_SUITE_P(
    Of, FileHeldDuringTheBackup,
    testing::Values(HeldFile{"TheApplication", kApplication, Moment::BeforeBackup, std::nullopt,
                             "Cannot read installed executable version"},
                    HeldFile{"TheInventory", kInventory, Moment::BeforeBackup, std::nullopt,
                             nullptr},
                    HeldFile{"ALibrary", kLibrary, Moment::BeforeBackup, std::nullopt, nullptr}),
    NameOf);

const HeldFile kHeldForAWhile[] = {
    {"TheSetup", kLibrary, Moment::BeforeSetup, Moment::BeforeRollback,
     "Inno Setup did not complete; exit code=99"},
    {"TheVerificationOfTheVersion", kApplication, Moment::BeforeVerification,
     Moment::BeforeRollback, "Cannot read installed executable version"},
    {"TheReadingOfTheInventory", kInventory, Moment::BeforeVerification, Moment::BeforeRollback,
     "Installed program inventory is missing"},
    {"TheVerificationOfALibrary", kLibrary, Moment::BeforeVerification, Moment::BeforeRollback,
     "SHA256 verification failed"},
};

struct FileHeldUntilTheRollback : HeldFileTest {};

TEST_P(FileHeldUntilTheRollback, LetsThePreviousProgramBeRestored) {
    Run();
    run.ExpectFailure(std::string(GetParam().message) + kRestored);
}

INSTANTIATE_TEST_SUITE_P(During, FileHeldUntilTheRollback, testing::ValuesIn(kHeldForAWhile),
                         NameOf);

// The same files, and nobody releases them.
struct FileHeldDuringTheRollbackToo : HeldFileTest {};

TEST_P(FileHeldDuringTheRollbackToo, StopsItAndTheBackupIsComplete) {
    Run();
    run.ExpectFailedRollback(UnrestoredMessage(run, GetParam().file));
}

std::vector<HeldFile> HeldToTheEnd() {
    std::vector<HeldFile> files(std::begin(kHeldForAWhile), std::end(kHeldForAWhile));
    for (HeldFile& file : files) {
        file.until.reset();
    }
    return files;
}

INSTANTIATE_TEST_SUITE_P(Since, FileHeldDuringTheRollbackToo, testing::ValuesIn(HeldToTheEnd()),
                         NameOf);

// Files that come into somebody's hands only when a failed setup program has ended.
struct FileHeldDuringTheRollback : testing::Test {
    FileHeldDuringTheRollback() { run.LetSetupFail(); }

    void RunWhileHeld(const FileHolder& holder) {
        run.plan[Moment::BeforeRollback] = [&holder] { holder.Hold(); };
        run.Run();
        holder.Release();
    }

    WorkerRun run;
};

TEST_F(FileHeldDuringTheRollback, StopsItWhereThatFileIsReached) {
    RunWhileHeld(FileHolder(run.program / kLibrary));
    run.ExpectFailedRollback(UnrestoredMessage(run, kLibrary));
}

TEST_F(FileHeldDuringTheRollback, StopsItWhenThatFileWasAddedByTheNewVersion) {
    const std::filesystem::path added = run.program / L"added.dll";
    RunWhileHeld(FileHolder(added));
    run.ExpectFailedRollback(FileSystemMessage("remove", ERROR_SHARING_VIOLATION, added));
}

TEST_F(FileHeldDuringTheRollback, StopsItWhenThatFileIsTheCopyInTheBackup) {
    std::optional<FileHolder> holder;
    // The backup is made in the run, and so is whoever holds a file of it.
    run.plan[Moment::BeforeBackup] = [&] { holder.emplace(run.Backup() / kLibrary); };
    run.plan[Moment::BeforeRollback] = [&] { holder->Hold(); };
    run.Run();
    holder->Release();
    run.ExpectFailedRollback(UnrestoredMessage(run, kLibrary));
}

TEST(SetupProgramHeld, WhileItIsStagedEndsTheUpdate) {
    WorkerRun run;
    const FileHolder holder(run.scene.installer);
    holder.Hold();
    run.Run();
    holder.Release();
    run.ExpectFailure(FileSystemMessage("copy_file", ERROR_SHARING_VIOLATION, run.scene.installer,
                                        run.scene.StagingDirectory() / L"installer.exe"));
    EXPECT_FALSE(run.SetupWasStarted());
}

TEST(SetupProgramHeld, WhenItIsStartedLetsThePreviousProgramBeRestored) {
    WorkerRun run;
    std::optional<FileHolder> holder;
    run.plan[Moment::BeforeBackup] = [&] {
        holder.emplace(run.scene.StagingDirectory() / L"installer.exe");
    };
    run.plan[Moment::BeforeSetup] = [&] { holder->Hold(); };
    run.Run();
    holder->Release();
    run.ExpectFailure(std::string("Process launch failed: 32") + kRestored);
}

TEST(FileOfTheUser, MayBeHeldDuringTheWholeUpdate) {
    WorkerRun run;
    const FileHolder holder(run.program / L"account.db");
    run.plan[Moment::BeforeBackup] = [&] { holder.Hold(); };
    run.Run();
    holder.Release();
    run.ExpectSuccess();
}

TEST(FileOfTheUser, MayBeHeldDuringTheWholeRollback) {
    WorkerRun run;
    run.LetSetupFail();
    const FileHolder holder(run.program / L"account.db");
    run.plan[Moment::BeforeBackup] = [&] { holder.Hold(); };
    run.Run();
    holder.Release();
    run.ExpectFailure(std::string("Inno Setup did not complete; exit code=1") + kRestored);
}

}  // namespace
}  // namespace updater
