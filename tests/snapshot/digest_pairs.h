#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <utility>

#include "support/file_digest.h"

namespace updater {

/// Pairs of texts that are not the same digest, though each has something in common.
inline constexpr std::pair<const char*, const char*> kDifferentDigests[] = {
    {"abcd", "abc"}, {"abc", "abcd"}, {"abcd", "ABCD"}, {"", "a"}, {"abcd", "abce"}};

/// Gives one text for the digest of every file directly in a directory, and the other elsewhere.
inline std::function<decltype(FileSha256Hex)> DigestsOf(
    const std::filesystem::path& directory, const std::pair<const char*, const char*>& digests) {
    return [directory, digests](const std::filesystem::path& file) -> std::string {
        return file.parent_path() == directory ? digests.first : digests.second;
    };
}

}  // namespace updater
