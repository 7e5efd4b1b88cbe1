#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace updater {

// The status file is how an update reports itself: broker and worker write it in turn, the
// application reads it, and the broker shows it when the worker failed. It holds one record, a line
// of JSON with the keys state, message and exitCode, and every write replaces the file whole by a
// rename, so a reader sees the old record or the new one, never a mixture. What could not be
// written to the end, because the disk is full, is not noticed: the new record may be cut off then.

inline constexpr wchar_t kStatusFile[] = L"status.json";

/// The state words, in the order of an ordinary update, then the ends that are no success.
inline constexpr char kStateAuthorized[] = "authorized";
inline constexpr char kStateReady[] = "ready";
inline constexpr char kStateInstalling[] = "installing";
inline constexpr char kStateSucceeded[] = "succeeded";
inline constexpr char kStateFailed[] = "failed";
inline constexpr char kStateCancelled[] = "cancelled";

/// Replaces the status file in `jobDirectory` by this record; `state` is one of the state words and
/// `message` is UTF-8. Raises `std::runtime_error` "Cannot write update status" when the new file
/// cannot be moved into place; the previous record then stays. Creates no directory.
void WriteUpdateStatus(const std::filesystem::path& jobDirectory, std::string_view state,
                       std::string_view message, std::int32_t exitCode);

/// Returns the text of the broker's error box: a heading, the status file as it stands and the job
/// directory. A missing or unreadable file leaves its place empty; raises nothing for it.
std::wstring ReadStatusReport(const std::filesystem::path& jobDirectory);

}  // namespace updater
