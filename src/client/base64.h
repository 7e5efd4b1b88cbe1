#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace updater {

/// Returns the bytes in base64, with padding and in one line.
std::string EncodeBase64(std::string_view bytes);

/// Returns the bytes that a text stands for; nothing unless `EncodeBase64` gives back exactly this
/// text.
std::optional<std::string> DecodeBase64(std::string_view text);

}  // namespace updater
