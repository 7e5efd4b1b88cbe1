#include "client/feed_address.h"

#include <algorithm>
#include <cstddef>

namespace updater {

namespace {

constexpr std::size_t kLongestAddress = 2048;

char LowerLetter(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                : character;
}

bool IsLetter(char character) {
    return LowerLetter(character) >= 'a' && LowerLetter(character) <= 'z';
}

bool IsInScheme(char character) {
    return IsLetter(character) || (character >= '0' && character <= '9') || character == '+' ||
           character == '-' || character == '.';
}

// "NAME:" in front of an address makes it an absolute one.
bool HasScheme(std::string_view address) {
    const auto end = std::ranges::find_if_not(address, IsInScheme);
    return end != address.end() && *end == ':' && IsLetter(address.front());
}

// Whatever reads the address cannot take it for another one: some pass over blanks and line ends,
// or take a backslash for a slash.
bool IsPlainAddress(std::string_view text) {
    return !text.empty() && text.size() <= kLongestAddress &&
           std::ranges::all_of(text, [](char character) {
               return character > ' ' && character <= '~' && character != '\\';
           });
}

}  // namespace

bool IsHttpsAddress(std::string_view text) {
    constexpr std::string_view kScheme = "https://";
    return IsPlainAddress(text) && text.size() > kScheme.size() &&
           std::ranges::equal(text.substr(0, kScheme.size()), kScheme, {}, LowerLetter) &&
           std::string_view("/?#:@").find(text[kScheme.size()]) == std::string_view::npos;
}

bool IsRelativeOrHttpsAddress(std::string_view text) {
    return IsPlainAddress(text) && (!HasScheme(text) || IsHttpsAddress(text));
}

}  // namespace updater
