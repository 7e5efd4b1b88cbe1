#include "client/version_number.h"

#include <charconv>
#include <cstddef>
#include <system_error>

namespace updater {

namespace {

// Takes a number from the text's beginning.
std::optional<std::uint16_t> TakeNumber(std::string_view& text) {
    std::uint16_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const auto length = static_cast<std::size_t>(end - text.data());
    if (error != std::errc() || (length > 1 && text.front() == '0')) {
        return std::nullopt;
    }
    text.remove_prefix(length);
    return number;
}

}  // namespace

std::optional<VersionNumber> ReadVersionNumber(std::string_view text) {
    VersionNumber version;
    for (std::size_t index = 0; index < version.parts.size(); ++index) {
        if (index > 0) {
            if (!text.starts_with('.')) {
                return std::nullopt;
            }
            text.remove_prefix(1);
        }
        const std::optional<std::uint16_t> number = TakeNumber(text);
        if (!number) {
            return std::nullopt;
        }
        version.parts[index] = *number;
    }
    return text.empty() ? std::optional(version) : std::nullopt;
}

std::string VersionText(const VersionNumber& version) {
    std::string text;
    for (const std::uint16_t part : version.parts) {
        text.append(text.empty() ? "" : ".").append(std::to_string(part));
    }
    return text;
}

}  // namespace updater
