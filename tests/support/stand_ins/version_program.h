#pragma once

#include <filesystem>
#include <string>

namespace updater {

/// Returns the program whose file version this is; that of "none" has no version resource.
std::filesystem::path VersionProgram(const std::wstring& version);

}  // namespace updater
