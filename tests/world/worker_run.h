#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/scenes/worker_scene.h"
#include "fixtures/tree_content.h"

namespace updater {

/// The points of a run at which a test lets something happen around it.
enum class Moment { BeforeBackup, BeforeSetup, BeforeVerification, BeforeRollback };

/// Returns the message with which the filesystem library's operation of this name fails.
std::string FileSystemMessage(const char* operation, unsigned long error,
                              const std::filesystem::path& path,
                              const std::filesystem::path& secondPath = {});

/// A whole run of the worker's process, from its command line to its exit code, and what the run
/// must leave behind. Besides what its scene has, the installation directory holds files of the
/// user's in several places.
struct WorkerRun {
    WorkerRun();
    WorkerRun(const WorkerRun&) = delete;
    WorkerRun& operator=(const WorkerRun&) = delete;

    /// Puts a file into the installed version.
    void AddToProgram(const std::filesystem::path& file, std::string_view content) const;

    /// Puts a file into the new version: its inventory lists it and its setup program installs it.
    void AddToPackage(const std::filesystem::path& file, std::string_view content);

    /// Puts a file into the installed version that the new version has as well: its inventory lists
    /// it, and its setup program leaves it alone.
    void AddToBothVersions(const std::filesystem::path& file, std::string_view content) const;

    /// Lets the setup program end with 1 after it has installed everything.
    void LetSetupFail();

    void Run();

    // After the run each of these checks the exit code, the status record and the whole content of
    // the installation directory, where the user's files are always what they were.

    /// The new version is installed and registered.
    void ExpectSuccess() const;
    /// The previous version is there and registered.
    void ExpectFailure(const std::string& message) const;
    /// The backup is complete, and puts the previous version back.
    void ExpectFailedRollback(const std::string& message) const;

    /// Whether that was tried, at least.
    [[nodiscard]] bool SetupWasStarted() const;

    [[nodiscard]] std::filesystem::path Backup() const {
        return scene.StagingDirectory() / L"backup";
    }
    [[nodiscard]] TreeContent UpdatedTree() const;
    void AddToInventory(const std::filesystem::path& file, const std::string& digest) const;
    [[nodiscard]] TreeContent InstalledTree() const;
    void ExpectEnd(int expectedExitCode, const StatusRecord& expected) const;
    void Reach(Moment moment);
    BOOL OnFirstProcess(HANDLE snapshot, LPPROCESSENTRY32W entry);

    WorkerScene scene;
    std::filesystem::path program = scene.installDirectory;
    /// What happens when; each once.
    std::map<Moment, std::function<void()>> plan;
    /// The installation directory as it was when the run began.
    TreeContent before;
    std::optional<int> exitCode;
};

}  // namespace updater
