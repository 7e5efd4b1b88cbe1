#pragma once

#include <optional>
#include <string_view>

#include "client/feed.h"

namespace updater {

/// Returns the feed that a payload is by the rules, read in another way than the product's: from a
/// tree of values, by regular expressions; nothing for a text that is none.
std::optional<Feed> FeedByTheRules(std::string_view payload);

}  // namespace updater
