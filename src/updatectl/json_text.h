#pragma once

#include <string>
#include <string_view>

#include "support/json_text.h"

namespace updater {

/// Returns a text, UTF-16, as a JSON string. What is no valid UTF-16 becomes the replacement
/// character.
std::string JsonString(std::wstring_view text);

}  // namespace updater
