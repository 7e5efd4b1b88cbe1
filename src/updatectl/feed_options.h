#pragma once

#include <filesystem>
#include <string_view>
#include <vector>

#include "client/feed.h"
#include "updatectl/command_options.h"

namespace updater {

inline constexpr std::wstring_view kAfterOption = L"--after";

/// Returns the options that say what a feed is to say.
const std::vector<std::wstring_view>& FeedOptions();

/// Returns the feed that the options ask for, of this setup program. Raises `UsageError` for
/// options that make none, and another standard exception when a file that they name is of no use.
Feed FeedOf(const std::filesystem::path& setup, const CommandOptions& options);

}  // namespace updater
