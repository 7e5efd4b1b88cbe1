#pragma once

#include <algorithm>
#include <string_view>

namespace updater {

/// Whether a text fits into a report and cannot be taken for anything else there.
inline bool IsReportSentence(std::string_view text) {
    return !text.empty() && text.size() < 512 &&
           std::ranges::all_of(
               text, [](char character) { return character >= ' ' && character <= '~'; });
}

}  // namespace updater
