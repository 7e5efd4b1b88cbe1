#pragma once

#include <filesystem>

namespace updater {

/// The application's executable, directly in its installation directory.
inline constexpr wchar_t kApplicationExecutable[] = L"corvellan.exe";

/// The file list with digests that every version ships directly in its installation directory.
inline constexpr wchar_t kProgramInventory[] = L"program-files.tsv";

/// Returns the application's executable in `installDirectory`, which is used as it stands.
inline std::filesystem::path ApplicationPath(const std::filesystem::path& installDirectory) {
    return installDirectory / kApplicationExecutable;
}

}  // namespace updater
