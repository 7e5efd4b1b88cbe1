#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "fixtures/tree_content.h"

namespace updater {

/// Runs a setup program silently, with its log beside the installation directory. Raises
/// `std::runtime_error` when it reports a failure.
void RunSetup(const std::filesystem::path& setup, const std::filesystem::path& installDirectory);

/// Copies all files below a directory.
void CopyTree(const std::filesystem::path& source, const std::filesystem::path& target);

/// What a user of the application may have in the installation directory, beside the program.
const TreeContent& UserData();
void AddUserData(const std::filesystem::path& installDirectory);

/// Returns the files that an update may replace: what every version ships, by the rules of
/// docs/architecture.md.
TreeContent ReadProgramFiles(const std::filesystem::path& installDirectory);

/// Returns those of the user's files that are still there.
TreeContent ReadUserData(const std::filesystem::path& installDirectory);

/// Returns a sentence for every file that differs from the version's own inventory, and one if the
/// inventory is missing or empty.
std::vector<std::string> FindInventoryDifferences(const std::filesystem::path& installDirectory);

}  // namespace updater
