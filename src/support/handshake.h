#pragma once

#include <cstdint>
#include <string>

#include "support/handle.h"

namespace updater {

// The handshake of an update's two processes. The unelevated broker makes a base name of its own
// for the run and creates two events under it, manual reset and not signalled; the elevated worker
// gets the base name on its command line and only opens them.
//
//   broker                                   worker
//   creates both events, starts the worker
//   waits for "ready" or the worker's end    verifies its copy of the setup program,
//                                            writes the status "authorized", sets "ready"
//   writes the status "ready",               waits for "commit"
//   waits for the application to exit,
//   sets "commit"                            waits for the application's process to end,
//                                            then writes the next status and installs
//
// Neither side ever resets an event. A broker that gives up just ends; the worker then reaches its
// own limit and cancels. The order of the status writes keeps the status file at one writer a time,
// except when the application stays open: then the limits of both end almost together, and either's
// record of the cancellation may be the last one.

/// How long the broker waits for "ready", the broker for the application's exit, and the worker for
/// "commit", in milliseconds.
inline constexpr std::uint32_t kHandshakeLimit = 180000;

/// How long the application may still run after "commit", in milliseconds.
inline constexpr std::uint32_t kExitLimitAfterCommit = 10000;

struct HandshakeEvents {
    UniqueHandle ready;
    UniqueHandle commit;
};

/// Returns the name of the event that the worker sets; it opens it with modify-state access.
inline std::wstring ReadyEventName(const std::wstring& baseName) {
    return baseName + L"-ready";
}

/// Returns the name of the event that the broker sets; the worker opens it with synchronize access.
inline std::wstring CommitEventName(const std::wstring& baseName) {
    return baseName + L"-commit";
}

}  // namespace updater
