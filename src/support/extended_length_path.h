#pragma once

#include <filesystem>

namespace updater {

/// Returns an absolute path, in drive-letter or share form, in the form in which Windows takes up
/// to 32,767 UTF-16 units on every machine: with "\\?\" or "\\?\UNC\" before it. Windows then takes
/// the path as it stands, so it must hold neither "." nor ".." components. A path in another form
/// is returned as it is.
std::filesystem::path ExtendedLengthPath(const std::filesystem::path& path);

/// Returns such a path in its ordinary form, and any other as it is.
std::filesystem::path OrdinaryPath(const std::filesystem::path& path);

}  // namespace updater
