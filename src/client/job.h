#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "client/version_number.h"
#include "support/handle.h"

namespace updater {

/// What the updater is told, beside its job directory and the application's process.
struct UpdateJob {
    std::filesystem::path installDirectory;
    std::filesystem::path setup;
    std::uint64_t setupSize = 0;
    /// 64 lower-case digits.
    std::string setupSha256;
    VersionNumber version;
};

/// Where the job directories are.
std::filesystem::path JobsDirectory(const std::filesystem::path& dataDirectory);

/// Makes a new job directory with a copy of the installed updater in it, which the setup program
/// can replace then; `identity` names it. Leaves nothing behind on a failure. Raises
/// `ClientFailure` APP_UPDATE_UPDATER_MISSING, and what `CreateJobIdentity`, `CreateDirectories`
/// and `CopyToNewFile` do.
std::filesystem::path CreateJobDirectory(const std::filesystem::path& dataDirectory,
                                         const std::wstring& identity,
                                         const std::filesystem::path& installDirectory);

/// Starts the updater in a job directory and hands it the right to the foreground, without which
/// the prompt for administrator rights may only flash in the taskbar. Returns its process. Raises
/// `ClientFailure` APP_UPDATE_UPDATER_NOT_STARTED.
UniqueHandle StartUpdater(const UpdateJob& job, const std::filesystem::path& jobDirectory);

/// Asks the updater to give up; it looks for the request while it waits for the application's end,
/// and so also finds one that was made earlier. Raises `ClientFailure` as `ReplaceWholeFile` does.
void RequestGivingUp(const std::filesystem::path& jobDirectory);

/// Whether the updater has been asked to give up.
bool WasGivingUpRequested(const std::filesystem::path& jobDirectory);

/// Whether the updater of a job directory still runs.
bool IsUpdaterRunning(const std::filesystem::path& jobDirectory);

}  // namespace updater
