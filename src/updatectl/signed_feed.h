#pragma once

#include <filesystem>
#include <span>
#include <string_view>
#include <vector>

#include "client/feed.h"
#include "client/signature.h"
#include "updatectl/command_options.h"

namespace updater {

inline constexpr std::wstring_view kKeyOption = L"--key";

/// Reads the files that `--key` names, at least one. Raises `UsageError` when it is not given, and
/// what `ContentOf` does when a file holds no public key.
std::vector<PublicKey> ReadKeys(const CommandOptions& options);

/// Reads a feed with a good signature by one of the keys. Raises what `ContentOf` does, also for
/// every other feed.
Feed ReadSignedFeed(const std::filesystem::path& file, std::span<const PublicKey> keys);

}  // namespace updater
