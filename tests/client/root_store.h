#pragma once

#include <string_view>

namespace updater {

/// Lets this machine trust an authority, whose certificate is given in DER. Under Wine only the
/// prefix is changed. Raises `std::runtime_error`.
void AddTrustedRoot(std::string_view certificate);

/// Ends that.
void RemoveTrustedRoot(std::string_view certificate);

}  // namespace updater
