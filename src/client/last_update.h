#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "client/version_number.h"

namespace updater {

/// The file in the data directory.
inline constexpr wchar_t kLastUpdateFile[] = L"last-update.json";

/// What is kept there of the last update, so that the application can be told its outcome at its
/// next start.
struct LastUpdate {
    /// The name of its job directory, a job identity (see `CreateJobIdentity`).
    std::wstring job;
    /// What was to be installed.
    VersionNumber version;
    /// Whether the application has been told the outcome.
    bool told = false;
};

/// Returns what is kept; nothing if there has been no update, or if what is kept is damaged.
/// Raises what `ReadFileUpTo` does.
std::optional<LastUpdate> ReadLastUpdate(const std::filesystem::path& dataDirectory);

/// Raises what `ReplaceWholeFile` does.
void WriteLastUpdate(const std::filesystem::path& dataDirectory, const LastUpdate& update);

}  // namespace updater
