#pragma once

#include <filesystem>
#include <vector>

namespace updater {

/// Returns the updates' protected directories under the machine's data folder.
std::vector<std::filesystem::path> ListStagingDirectories();

}  // namespace updater
