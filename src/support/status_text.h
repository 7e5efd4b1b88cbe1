#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace updater {

/// Returns the text as the inside of a JSON string: a backslash and a double quote get a backslash
/// before them, and every byte below 0x20 becomes one space. All other bytes pass unchanged.
std::string EscapeStatusText(std::string_view text);

/// Returns one status record as a single line of JSON without a line feed. Only the message is
/// escaped; the state is one of the plain state words.
std::string FormatStatusRecord(std::string_view state, std::string_view message,
                               std::int32_t exitCode);

}  // namespace updater
