#pragma once

#include <algorithm>
#include <string>

namespace updater {

/// Returns what a status record holds of a message: the text with a space for every control byte.
inline std::string WithSpacesForControls(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char byte) { return static_cast<unsigned char>(byte) < 0x20; },
        ' ');
    return text;
}

}  // namespace updater
