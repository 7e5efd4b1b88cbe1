#pragma once

#include <string_view>

namespace updater {

// Addresses hold only what may stand in a URL: visible ASCII without a backslash, at most 2,048
// characters; everything else is percent-encoded. So whatever reads one cannot take it for another.

/// Whether a text is an absolute address with the scheme "https" and a host.
bool IsHttpsAddress(std::string_view text);

/// Whether a text is an address relative to another one, or absolute with the scheme "https".
bool IsRelativeOrHttpsAddress(std::string_view text);

}  // namespace updater
