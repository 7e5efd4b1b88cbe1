#pragma once

#include <filesystem>

namespace updater {

/// Deletes a file, or a directory with everything in it. What is in use stays; raises nothing for
/// it.
void RemoveUnlessInUse(const std::filesystem::path& path);

}  // namespace updater
