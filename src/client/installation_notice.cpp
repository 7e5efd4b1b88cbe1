#include "client/installation_notice.h"

#include "support/application_identity.h"
#include "support/handle.h"
#include "support/windows_api.h"

namespace updater {

bool IsBeingInstalled() {
    const UniqueHandle mutex = OwnHandle(OpenMutexW(SYNCHRONIZE, FALSE, kInstallMutex));
    // It may exist without being anybody's to open.
    return mutex != nullptr || GetLastError() == ERROR_ACCESS_DENIED;
}

}  // namespace updater
