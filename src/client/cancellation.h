#pragma once

#include <cstdint>

#include "support/handle.h"

namespace updater {

/// What one thread uses to end another one's call: an event with manual reset.
struct Cancellation {
    UniqueHandle event;
};

/// Raises `ClientFailure` APP_UPDATE_SYSTEM_ERROR when the system makes no event.
Cancellation CreateCancellation();

/// From any thread; holds until it is taken.
void RequestCancellation(const Cancellation& cancellation) noexcept;

/// Raises `ClientFailure` APP_UPDATE_CANCELLED, and takes the request, if there is one.
void RaiseIfCancelled(const Cancellation& cancellation);

/// Waits so many milliseconds; ends at once by `RaiseIfCancelled` when cancellation is requested.
void PauseUnlessCancelled(const Cancellation& cancellation, std::uint32_t milliseconds);

/// Takes the request and raises `ClientFailure` APP_UPDATE_CANCELLED.
[[noreturn]] void RaiseCancelled(const Cancellation& cancellation);

}  // namespace updater
