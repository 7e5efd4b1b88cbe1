#pragma once

#include <filesystem>
#include <string>

namespace updater {

/// What an installation works on, once the setup program is verified and the application closed.
struct Installation {
    /// Canonical.
    std::filesystem::path installDirectory;
    std::filesystem::path jobDirectory;
    std::filesystem::path stagingDirectory;
    /// The verified copy of the setup program, in the staging directory.
    std::filesystem::path setupProgram;
    std::wstring expectedVersion;
};

/// Refuses while an instance of the application runs. Backs the program up, runs the setup program
/// silently and without a time limit, and accepts the result only if version and inventory are
/// right; otherwise puts the previous program and its registered version back. Reports each state
/// in the status file. Returns the process exit code, 0 or 1. Raises when a step up to the backup
/// fails (nothing was changed then), or when a step of the rollback does (which stops there).
int InstallUpdate(const Installation& installation);

}  // namespace updater
