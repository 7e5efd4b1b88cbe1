#pragma once

#include <filesystem>
#include <string>

#include "end_to_end/application.h"
#include "end_to_end/update_run.h"

namespace updater {

/// Puts a setup program and the feed that offers it into a directory.
void OfferUpdate(const std::filesystem::path& feedDirectory, const std::filesystem::path& setup,
                 const std::string& version);

/// An update that the application itself has started.
struct HostUpdate {
    Application application;
    std::filesystem::path jobDirectory;
    UpdateRun run;
};

/// Starts the application unelevated, presses its "Update" button, and returns when the updater has
/// asked for administrator rights. The job directory is below %LOCALAPPDATA%. Raises
/// `std::runtime_error` when the application does not start an update.
HostUpdate StartHostUpdate(const std::filesystem::path& installDirectory,
                           const std::filesystem::path& feedDirectory,
                           RecordObserver observer = {});

/// Presses the application's "Cancel update" button.
void PressCancel(const Application& application);

}  // namespace updater
