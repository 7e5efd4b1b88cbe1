#pragma once

#include <filesystem>
#include <functional>
#include <utility>

#include "snapshot/doubles.h"

namespace updater {

// What a test lets happen at the copy of one file. All other files are copied as usual.

/// Copies the file to its target, and then something happens.
inline std::function<decltype(CopyFileW)> CopyThen(const std::filesystem::path& target,
                                                   std::function<void()> event) {
    return [target, event = std::move(event)](LPCWSTR from, LPCWSTR to, BOOL failIfExists) {
        const BOOL copied = CopyFileW(from, to, failIfExists);
        if (target == to) {
            event();
        }
        return copied;
    };
}

/// Fails to copy the file to its target.
inline std::function<decltype(CopyFileW)> CopyFailing(const std::filesystem::path& target,
                                                      DWORD error) {
    return [target, error](LPCWSTR from, LPCWSTR to, BOOL failIfExists) {
        return target == to ? FailWith(error) : CopyFileW(from, to, failIfExists);
    };
}

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
