#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "support/windows_api.h"

namespace updater {

/// The longest wait for anything that should happen at once or within an installation.
inline constexpr std::chrono::seconds kPatience{60};

/// Polls until the condition holds. Raises `std::runtime_error`, naming what was waited for, when
/// the time is over.
void AwaitCondition(const std::string& awaited, const std::function<bool()>& condition,
                    std::chrono::milliseconds patience = kPatience);

/// Waits for a process's end and returns its exit code. Raises `std::runtime_error`, naming what
/// was waited for, when the time is over, and `std::system_error` for what is no process.
std::uint32_t AwaitEnd(HANDLE process, const std::string& awaited,
                       std::chrono::milliseconds patience = kPatience);

/// Whether the process, or thread, has ended. Raises `std::system_error` for what is neither.
bool HasEnded(HANDLE process);

}  // namespace updater
