#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace updater {

/// A program's version as its version resource has it.
struct VersionNumber {
    std::array<std::uint16_t, 4> parts{};

    friend auto operator<=>(const VersionNumber&, const VersionNumber&) = default;
};

/// Reads exactly four numbers of at most 65535 with dots between them, without leading zeros or
/// anything else; nothing for any other text.
std::optional<VersionNumber> ReadVersionNumber(std::string_view text);

/// Returns the version in that form.
std::string VersionText(const VersionNumber& version);

}  // namespace updater
