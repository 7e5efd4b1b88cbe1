#include "worker/install_mutex.h"

#include <stdexcept>

#include "support/windows_api.h"

namespace updater {

namespace {

// In the global namespace: one installation at a time on the machine.
constexpr wchar_t kInstallMutex[] = L"Global\\CorvellanUpdateInstall";

}  // namespace

UniqueHandle AcquireInstallMutex() {
    UniqueHandle mutex = OwnHandle(CreateMutexW(nullptr, TRUE, kInstallMutex));
    if (!mutex || GetLastError() == ERROR_ALREADY_EXISTS) {
        throw std::runtime_error("Another update installation is running");
    }
    return mutex;
}

}  // namespace updater
