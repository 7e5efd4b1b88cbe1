#pragma once

#include <filesystem>

#include "support/handle.h"

namespace updater {

// Like file_system.h, operations of the standard filesystem library built on the Windows calls; the
// errors are of the same kind.

/// Returns the absolute path of an existing file or directory with links, letter case and short
/// names resolved, in drive-letter or share form. Operation "canonical".
std::filesystem::path CanonicalPath(const std::filesystem::path& path);

/// Returns the canonical path of what was opened by `path`, wherever that path leads by now.
/// Operation "canonical".
std::filesystem::path CanonicalPathOf(HANDLE opened, const std::filesystem::path& path);

/// Returns the canonical form of the path's existing leading part with the rest appended, made
/// absolute and normalised by its text alone. Operation "weakly_canonical".
std::filesystem::path WeaklyCanonicalPath(const std::filesystem::path& path);

}  // namespace updater
