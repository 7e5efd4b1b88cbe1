#pragma once

#include <string>
#include <string_view>

namespace updater {

/// Converts UTF-16 to UTF-8. Invalid input (a lone surrogate) becomes the system's replacement
/// character; empty input gives an empty text. Raises nothing of its own.
std::string WideToUtf8(std::wstring_view text);

/// Converts UTF-8 to UTF-16. Invalid input becomes the system's replacement character; empty input
/// gives an empty text. Raises nothing of its own.
std::wstring Utf8ToWide(std::string_view text);

}  // namespace updater
