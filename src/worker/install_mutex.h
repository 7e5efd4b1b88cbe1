#pragma once

#include "support/handle.h"

namespace updater {

/// In the global namespace: one installation at a time on the machine.
inline constexpr wchar_t kInstallMutex[] = L"Global\\CorvellanUpdateInstall";

/// Takes the mutex that keeps two installations on one machine apart, whoever is logged on; it is
/// held until the handle is closed. Raises `std::runtime_error` "Another update installation is
/// running", also when the mutex cannot be made.
UniqueHandle AcquireInstallMutex();

}  // namespace updater
