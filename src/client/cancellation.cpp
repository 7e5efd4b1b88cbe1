#include "client/cancellation.h"

#include "client/failure.h"
#include "support/windows_api.h"

namespace updater {

Cancellation CreateCancellation() {
    Cancellation cancellation{OwnHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr))};
    if (cancellation.event == nullptr) {
        throw ClientFailure(APP_UPDATE_SYSTEM_ERROR, "Cannot create an event", GetLastError());
    }
    return cancellation;
}

void RequestCancellation(const Cancellation& cancellation) noexcept {
    SetEvent(cancellation.event.get());
}

void RaiseCancelled(const Cancellation& cancellation) {
    ResetEvent(cancellation.event.get());
    throw ClientFailure(APP_UPDATE_CANCELLED, "Cancelled by the application");
}

void RaiseIfCancelled(const Cancellation& cancellation) {
    PauseUnlessCancelled(cancellation, 0);
}

void PauseUnlessCancelled(const Cancellation& cancellation, std::uint32_t milliseconds) {
    if (WaitForSingleObject(cancellation.event.get(), milliseconds) == WAIT_OBJECT_0) {
        RaiseCancelled(cancellation);
    }
}

}  // namespace updater
