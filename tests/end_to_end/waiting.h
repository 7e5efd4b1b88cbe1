#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>

#include "support/windows_api.h"

namespace updater {

/// That the tests' patience is over; names what was waited for.
struct TimeOut : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Polls until the condition holds. Raises `TimeOut`.
void AwaitCondition(const std::string& awaited, const std::function<bool()>& condition);

/// Waits for a process's end and returns its exit code. Raises `TimeOut`, and `std::system_error`
/// for what is no process.
std::uint32_t AwaitEnd(HANDLE process, const std::string& awaited);

/// Whether the process, or thread, has ended. Raises `std::system_error` for what is neither.
bool HasEnded(HANDLE process);

}  // namespace updater
