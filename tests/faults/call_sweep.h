#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "faults/call_failures.h"

namespace updater::faults {

/// One call that the updater made to Windows or to the file system.
struct Call {
    std::string_view function;
    /// The functions of the updater that it was made in, the innermost first.
    std::vector<std::string> callers;
    /// The path or name that is the call's first argument, if that is what it is.
    std::wstring argument;
};

/// Whether the call was made in this function of the updater, or in what that called.
bool IsWithin(const Call& call, std::string_view caller);

/// "CopyFileW (…\application.exe), call 12, in RunWorker > … > CopyOverFile"
std::string Describe(const std::vector<Call>& calls, std::size_t index);

/// Returns every call that the action makes, in order.
std::vector<Call> RecordCalls(const std::function<void()>& action);

/// A call of a recorded run, and how it fails.
struct Fault {
    const std::vector<Call>& calls;
    std::size_t index;
    const CallFailure& failure;

    [[nodiscard]] const Call& FailedCall() const { return calls[index]; }
};

/// Runs the recorded action again with the fault. Raises `std::runtime_error` if it does not come
/// to that call.
void RunWithFault(const Fault& fault, const std::function<void()>& action);

// For the functions that stand between the updater and Windows: each call begins and ends.

/// Returns how the call has to fail, or null if it takes its course. What Windows, or a replacement
/// of it, calls meanwhile is not the updater's and counts for nothing.
const CallFailure* BeginCall(std::string_view function, const wchar_t* argument) noexcept;
void EndCall() noexcept;

/// Returns how far the clock has jumped, in milliseconds.
ULONGLONG ClockAhead() noexcept;

}  // namespace updater::faults
