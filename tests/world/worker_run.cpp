#include "world/worker_run.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <system_error>

#include "app/dispatch.h"
#include "fixtures/doubles/scoped_command_line.h"
#include "fixtures/file_content.h"
#include "fixtures/tree_content.h"
#include "fixtures/updater_command_line.h"
#include "snapshot/program_restore.h"
#include "support/file_digest.h"
#include "support/text_conversion.h"
#include "world/verbatim_file.h"

namespace updater {

namespace {

constexpr std::array<const wchar_t*, 4> kUserFiles = {
    L"account.db", L"settings.ini", L"plugins\\own.dll", L"\u65E5\u5FD7 logs\\session 1.log"};

// The worker asks for the running processes when it starts, before the backup and before the
// rollback.
constexpr int kProcessListOfRollback = 3;

bool IsUsers(const std::wstring& path) {
    return std::ranges::any_of(kUserFiles,
                               [&](const std::wstring& file) { return file.starts_with(path); });
}

TreeContent WithoutUserFiles(TreeContent tree) {
    std::erase_if(tree, [](const auto& entry) { return IsUsers(entry.first); });
    return tree;
}

TreeContent UserFilesOf(TreeContent tree) {
    std::erase_if(tree, [](const auto& entry) { return !IsUsers(entry.first); });
    return tree;
}

ProgramAssets FilesOf(const TreeContent& tree) {
    ProgramAssets files;
    for (const auto& [path, content] : tree) {
        if (!path.ends_with(L'\\')) {
            files.insert(path);
        }
    }
    return files;
}

void ExpectSameTree(const TreeContent& expected, const TreeContent& actual) {
    EXPECT_EQ(FindDifferences(expected, actual), std::vector<std::string>());
}

}  // namespace

std::string FileSystemMessage(const char* operation, unsigned long error,
                              const std::filesystem::path& path,
                              const std::filesystem::path& secondPath) {
    using std::filesystem::filesystem_error;
    const std::error_code code(static_cast<int>(error), std::system_category());
    return secondPath.empty() ? filesystem_error(operation, path, code).what()
                              : filesystem_error(operation, path, secondPath, code).what();
}

WorkerRun::WorkerRun() {
    for (const std::filesystem::path file : kUserFiles) {
        WriteFileContent(program / file, "the user's " + WideToUtf8(file.native()));
    }
}

void WorkerRun::AddToProgram(const std::filesystem::path& file, std::string_view content) const {
    WriteFileContent(program / file, content);
}

void WorkerRun::AddToInventory(const std::filesystem::path& file, const std::string& digest) const {
    const std::filesystem::path inventory = scene.package / L"program-files.tsv";
    WriteFileContent(inventory,
                     ReadFileContent(inventory) + WideToUtf8(file.native()) + '\t' + digest + '\n');
}

void WorkerRun::AddToPackage(const std::filesystem::path& file, std::string_view content) {
    const std::filesystem::path source = scene.package / file;
    WriteFileContent(source, content);
    AddToInventory(file, FileSha256Hex(source));
    std::vector<std::string>& steps = scene.setupSteps;
    steps.insert(steps.end() - 1,
                 "copy\t" + WideToUtf8(source.native()) + '\t' + WideToUtf8(file.native()));
}

void WorkerRun::AddToBothVersions(const std::filesystem::path& file,
                                  std::string_view content) const {
    WriteFileContent(program / file, content);
    AddToInventory(file, FileSha256Hex(program / file));
}

void WorkerRun::LetSetupFail() {
    scene.setupSteps.back() = "exit\t1";
}

void WorkerRun::Reach(Moment moment) {
    const auto planned = plan.extract(moment);
    if (planned) {
        planned.mapped()();
    }
}

BOOL WorkerRun::OnFirstProcess(HANDLE snapshot, LPPROCESSENTRY32W entry) {
    if (scene.processLists + 1 == kProcessListOfRollback) {
        Reach(Moment::BeforeRollback);
    }
    return scene.OnFirstProcess(snapshot, entry);
}

void WorkerRun::Run() {
    scene.onVersionRead = [this](int number) {
        if (number == 1) {
            Reach(Moment::BeforeBackup);
        } else if (scene.processLists < kProcessListOfRollback) {
            Reach(Moment::BeforeVerification);
        }
    };
    scene.onSetupStart = [this] {
        // Programs that a test starts in the middle of the run come by here as well.
        if (SetupWasStarted()) {
            Reach(Moment::BeforeSetup);
        }
    };
    doubles::Process32FirstW.Set(std::bind_front(&WorkerRun::OnFirstProcess, this));
    before = InstalledTree();
    UpdaterArguments options = scene.arguments;
    options.erase(kWorkerFlag);
    const ScopedCommandLine commandLine(L"updater.exe " + CommandLineOf(kWorkerFlag, options));
    exitCode = RunUpdater();
    EXPECT_TRUE(plan.empty()) << "A planned moment was not reached";
}

void WorkerRun::ExpectEnd(int expectedExitCode, const StatusRecord& expected) const {
    EXPECT_EQ(exitCode, expectedExitCode);
    EXPECT_EQ(ReadStatusRecord(scene.jobDirectory), expected);
}

bool WorkerRun::SetupWasStarted() const {
    return std::ranges::any_of(scene.processes.starts, [](const ProcessStart& start) {
        return std::filesystem::path(start.application).filename() == L"installer.exe";
    });
}

// Files that are not to be reached by their plain path are part of it.
TreeContent WorkerRun::InstalledTree() const {
    return ReadTreeContent(VerbatimPath(program));
}

TreeContent WorkerRun::UpdatedTree() const {
    TreeContent tree = before;
    for (const auto& [path, content] : ReadTreeContent(scene.package)) {
        tree[path] = content;
    }
    return tree;
}

void WorkerRun::ExpectSuccess() const {
    ExpectEnd(0, {"succeeded", "Installed version 2.0.0.0", 0});
    EXPECT_EQ(RegisteredVersion(), L"2.0");
    ExpectSameTree(UpdatedTree(), InstalledTree());
}

void WorkerRun::ExpectFailure(const std::string& message) const {
    ExpectEnd(1, {"failed", message, 1});
    EXPECT_EQ(RegisteredVersion(), L"1.0");
    ExpectSameTree(before, InstalledTree());
}

void WorkerRun::ExpectFailedRollback(const std::string& message) const {
    ExpectEnd(1, {"failed", message, 1});
    ExpectSameTree(UserFilesOf(before), UserFilesOf(InstalledTree()));
    const TreeContent backup = ReadTreeContent(Backup());
    ExpectSameTree(WithoutUserFiles(before), backup);
    RestoreProgram(program, Backup(), FilesOf(backup));
    ExpectSameTree(before, InstalledTree());
}

}  // namespace updater
