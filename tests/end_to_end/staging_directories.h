#pragma once

#include <filesystem>
#include <vector>

namespace updater {

/// Returns the updates' protected directories under the machine's data folder.
std::vector<std::filesystem::path> ListStagingDirectories();

/// Returns those of them that have come since then.
std::vector<std::filesystem::path> ListNewStagingDirectories(
    const std::vector<std::filesystem::path>& before);

}  // namespace updater
