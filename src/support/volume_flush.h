#pragma once

#include <filesystem>

namespace updater {

/// Writes through to the disk what the system's cache holds of the volume that `directory` lies on,
/// whoever has written it; that takes an administrator's rights. Returns whether the system says
/// that it is done; raises nothing.
bool FlushVolumeOf(const std::filesystem::path& directory) noexcept;

}  // namespace updater
