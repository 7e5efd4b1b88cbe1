#include "client/feed_address.h"

#include <algorithm>
#include <cstddef>

namespace updater {

namespace {

constexpr std::size_t kLongestAddress = 2048;

bool IsLetter(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

bool IsInScheme(char character) {
    return IsLetter(character) || (character >= '0' && character <= '9') || character == '+' ||
           character == '-' || character == '.';
}

// Some readers pass over blanks and line ends, or take a backslash for a slash.
bool IsInAddress(char character) {
    constexpr std::string_view kNever = "\"<>\\^`{|}";
    return character > ' ' && character <= '~' && kNever.find(character) == std::string_view::npos;
}

bool HasOnlyAddressCharacters(std::string_view text) {
    return !text.empty() && text.size() <= kLongestAddress &&
           std::ranges::all_of(text, IsInAddress);
}

// "NAME:" in front of an address makes it an absolute one.
bool HasScheme(std::string_view address) {
    const std::size_t colon = address.find(':');
    return colon != std::string_view::npos && IsLetter(address.front()) &&
           std::ranges::all_of(address.substr(0, colon), IsInScheme);
}

// Whether it is "//HOST", whatever follows that.
bool BeginsWithHost(std::string_view text) {
    if (!text.starts_with("//")) {
        return false;
    }
    text.remove_prefix(2);
    const std::string_view host = text.substr(0, text.find_first_of("/?#"));
    return !host.empty() && host.front() != ':' && host.find('@') == std::string_view::npos;
}

}  // namespace

bool IsAbsoluteFeedAddress(std::string_view text) {
    constexpr std::string_view kScheme = "https:";
    const bool isHttps = std::ranges::equal(
        text.substr(0, kScheme.size()), kScheme, [](char character, char wanted) {
            return character == wanted || (IsLetter(character) && (character | 0x20) == wanted);
        });
    return HasOnlyAddressCharacters(text) && isHttps && BeginsWithHost(text.substr(kScheme.size()));
}

bool IsFeedAddress(std::string_view text) {
    if (!HasOnlyAddressCharacters(text)) {
        return false;
    }
    return HasScheme(text) ? IsAbsoluteFeedAddress(text)
                           : !text.starts_with("//") || BeginsWithHost(text);
}

}  // namespace updater
