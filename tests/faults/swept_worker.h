#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "faults/outcome.h"
#include "faults/sweep.h"
#include "fixtures/directory_link.h"
#include "fixtures/scenes/update_places.h"
#include "fixtures/tree_content.h"
#include "fixtures/uninstall_entry.h"

namespace updater::faults {

// The sides of a worker's outcome.
/// "previous", "new" or "neither"; without the user's files.
inline constexpr char kProgram[] = "program";
/// "as they were" or "changed".
inline constexpr char kUserFiles[] = "the user's files";
inline constexpr char kRegisteredVersion[] = "registered version";
/// "none" or "left".
inline constexpr char kStaging[] = "staging directory";
/// "complete" or "not complete".
inline constexpr char kBackup[] = "backup";

/// What the worker meets.
struct WorkerCase {
    bool brokerCommits = true;
    DWORD setupExitCode = 0;
};

/// A small installation of version 1 with a user's files, registered as "1.0", and the download of
/// version 2. The application, the broker and the setup program are simulated; files, registry and
/// all other objects are real.
struct SweptWorker : UpdatePlaces {
    SweptWorker();

    /// Runs the worker in the scene as it is at first.
    Outcome Run(const WorkerCase& met, const Watcher& watch);

    /// Puts a link among the user's files. Making it anew for each run would be slow.
    void AddLink();

    void Lay();
    void LayProgram() const;
    void Install() const;
    [[nodiscard]] std::wstring CommandLine(DWORD parentId, const std::wstring& eventBaseName) const;
    [[nodiscard]] Outcome Look() const;
    [[nodiscard]] std::filesystem::path StagingDirectory() const;

    std::filesystem::path dataFolder = directory.path / L"machine data";
    ScopedUninstallEntry uninstallEntry;
    std::optional<DirectoryLink> link;
    TreeContent previousProgram;
    TreeContent newProgram;
    TreeContent userFiles;
    bool programIsLaid = false;
};

}  // namespace updater::faults
