#include "updatectl/windows_error.h"

#include <system_error>

namespace updater {

void RaiseWindowsError(const std::string& action, unsigned long error) {
    throw std::system_error(static_cast<int>(error), std::system_category(), action);
}

}  // namespace updater
