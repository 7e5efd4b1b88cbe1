#pragma once

namespace updater {

/// From here on an uncaught exception, a failed library assertion and `abort` end the process at
/// once with `kExitUnreported` and nothing else. The runtime's own end may open a dialog, which
/// nobody would see or close behind a process without a window.
void EndSilentlyOnUncaughtFailure();

}  // namespace updater
