// The updater on a machine whose user declines every prompt for administrator rights.

#include "app/dispatch.h"
#include "fixtures/doubles/windows_doubles.h"
#include "support/windows_api.h"

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    const updater::ScopedReplacement prompt(updater::doubles::ShellExecuteExW, [](auto*) {
        return updater::FailWith(ERROR_CANCELLED);
    });
    return updater::RunUpdater();
}
