#include "app/dispatch.h"
#include "app/silent_end.h"
#include "support/exit_code.h"
#include "support/windows_api.h"

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    // Before anything else can load a library: one that lies beside the executable, where any user
    // may have put it, must never run with the rights of this process.
    if (SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32) == 0) {
        return updater::kExitUnreported;
    }
    updater::EndSilentlyOnUncaughtFailure();
    return updater::RunUpdater();
}
