#pragma once

#include <filesystem>
#include <functional>
#include <utility>

#include "fixtures/doubles/windows_doubles.h"

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

}  // namespace updater
