#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "end_to_end/installed_program.h"
#include "end_to_end/whole_update.h"
#include "fixtures/scoped_variable.h"
#include "fixtures/temporary_directory.h"
#include "fixtures/uninstall_entry.h"

namespace updater {

/// A whole update with an installation of its own: version 1 of the application, which the setup
/// program has installed, with a user's data in it, and what it takes to update it to version 2.
/// Every path holds Chinese characters and spaces. When the scene goes, no process and no staging
/// directory of the update is left, and the uninstall entry is what it was.
struct UpdateScene : WholeUpdate {
    UpdateScene();
    ~UpdateScene();
    UpdateScene(const UpdateScene&) = delete;
    UpdateScene& operator=(const UpdateScene&) = delete;

    [[nodiscard]] std::filesystem::path InWorkspace(const wchar_t* name) const {
        return workspace.path / name;
    }

    /// Makes the job the update to what this setup program installs, as this version.
    void OfferSetup(const std::wstring& setupName, const std::wstring& version);
    void OfferSetupFile(const std::filesystem::path& setup, const std::wstring& version);

    /// The options of the running application's request.
    [[nodiscard]] UpdaterArguments Options() const { return UpdateOptions(job, application.id); }

    /// The staging directories that have come since the scene was made.
    [[nodiscard]] std::vector<std::filesystem::path> NewStagingDirectories() const;

    UninstallEntryKeeper entryBefore;
    std::vector<std::filesystem::path> stagingBefore;
    TemporaryDirectory workspace;
    std::optional<ScopedVariable> temporaryFiles;
    TreeContent programBefore;
};

}  // namespace updater
