#pragma once

#include <filesystem>
#include <string>

namespace updater {

/// Runs a shell script of the host system in the directory, to its end. On Wine this makes what
/// Windows programs cannot make there, files with names that Windows cannot hold among it. The
/// directory above gets files of the script's own. Raises `std::runtime_error` when the script
/// fails, or when there is no such host.
void RunHostScript(const std::filesystem::path& directory, const std::string& script);

}  // namespace updater
