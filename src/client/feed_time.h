#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace updater {

/// Seconds since the beginning of 1970, UTC.
using UnixTime = std::int64_t;

/// Reads a moment of the years 0 to 9999 in the form "2026-11-22T18:31:00Z"; nothing for any other
/// text, such as one with a day that its month does not have.
std::optional<UnixTime> ReadTime(std::string_view text);

/// Returns a moment of these years in that form, and an empty text for any other.
std::string FeedTimeText(UnixTime time);

}  // namespace updater
