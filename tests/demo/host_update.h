#pragma once

#include <filesystem>
#include <string>

#include "end_to_end/application.h"
#include "end_to_end/update_run.h"

namespace updater {

/// Puts a setup program and the feed that offers it into a directory.
void OfferUpdate(const std::filesystem::path& feedDirectory, const std::filesystem::path& setup,
                 const std::string& version);

struct HostUpdate {
    std::filesystem::path jobDirectory;
    UpdateRun run;
};

/// Starts the application unelevated, presses its "Update" button, grants the prompt for
/// administrator rights, and tells each status record as it comes. Returns when the updater waits
/// for the application or has given up. Raises `std::runtime_error` when the application does not
/// start an update.
HostUpdate StartHostUpdate(const std::filesystem::path& installDirectory,
                           const std::filesystem::path& feedDirectory);

}  // namespace updater
