#pragma once

#include "support/handle.h"

namespace updater {

/// Takes the mutex that keeps two installations of the application on one machine apart, whoever is
/// logged on; it is held until the handle is closed. Raises `std::runtime_error` "Another update
/// installation is running", also when the mutex cannot be made.
UniqueHandle AcquireInstallMutex();

}  // namespace updater
