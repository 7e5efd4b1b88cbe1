#pragma once

#include <string>

namespace updater {

/// Raises `std::system_error` whose message is `action`, what could not be done with which file,
/// and the system's words for the Windows error number.
[[noreturn]] void RaiseWindowsError(const std::string& action, unsigned long error);

}  // namespace updater
