#include "worker/install_mutex.h"

#include <stdexcept>

#include "support/application_identity.h"
#include "support/windows_api.h"

namespace updater {

UniqueHandle AcquireInstallMutex() {
    UniqueHandle mutex = OwnHandle(CreateMutexW(nullptr, TRUE, kInstallMutex));
    if (!mutex || GetLastError() == ERROR_ALREADY_EXISTS) {
        throw std::runtime_error("Another update installation is running");
    }
    return mutex;
}

}  // namespace updater
