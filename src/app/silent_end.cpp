#include "app/silent_end.h"

#include <csignal>
#include <cstdlib>
#include <exception>

#include "support/exit_code.h"

namespace updater {

namespace {

[[noreturn]] void EndSilently() {
    std::_Exit(kExitUnreported);
}

[[noreturn]] void EndSilentlyOnAbort(int /*signal*/) {
    EndSilently();
}

}  // namespace

void EndSilentlyOnUncaughtFailure() {
    std::set_terminate(EndSilently);
    static_cast<void>(std::signal(SIGABRT, EndSilentlyOnAbort));
}

}  // namespace updater
