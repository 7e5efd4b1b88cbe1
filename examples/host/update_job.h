#pragma once

#include <filesystem>
#include <optional>

namespace corvellan {

/// Makes a new, empty job directory, "%LOCALAPPDATA%\Corvellan\updates\{...}", remembers it in
/// "%LOCALAPPDATA%\Corvellan\last-update.txt", and removes those of
/// earlier updates.
std::filesystem::path CreateJobDirectory();

/// Returns the job directory of the last update; nothing if there was none.
std::optional<std::filesystem::path> LastJobDirectory();

/// Asks the updater to give up. It looks for this request as long as it waits for the application's
/// exit, and so also finds one that was made earlier.
void RequestCancellation(const std::filesystem::path& jobDirectory);

/// The user is told the outcome of an update once.
bool WasOutcomeTold(const std::filesystem::path& jobDirectory);
void MarkOutcomeTold(const std::filesystem::path& jobDirectory);

}  // namespace corvellan
