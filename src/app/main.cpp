#include <cstdlib>
#include <exception>

#include "app/dispatch.h"
#include "support/exit_code.h"
#include "support/windows_api.h"

namespace {

// The runtime's own end of a program with an uncaught exception may open a dialog, which nobody
// would see or close behind an elevated process without a window.
[[noreturn]] void EndSilently() {
    std::_Exit(updater::kExitUnreported);
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    std::set_terminate(EndSilently);
    return updater::RunUpdater();
}
