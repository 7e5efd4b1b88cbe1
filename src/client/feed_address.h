#pragma once

#include <string_view>

namespace updater {

// An address in a feed has at most 2,048 characters, and only those that a URL has as they stand:
// everything else is percent-encoded. Whatever reads one cannot take it for another.

/// Whether a text is an absolute address with the scheme "https", a host, and no user's name.
bool IsAbsoluteFeedAddress(std::string_view text);

/// Whether a text is such an address, or one relative to the feed's.
bool IsFeedAddress(std::string_view text);

}  // namespace updater
