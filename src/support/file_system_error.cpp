#include "support/file_system_error.h"

#include <system_error>

#include "support/extended_length_path.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

// The library fails on a path that is not valid UTF-16 when it composes the message; the system's
// replacement characters keep such a path readable.
std::filesystem::path PrintablePath(const std::filesystem::path& path) {
    return Utf8ToWide(WideToUtf8(OrdinaryPath(path).native()));
}

}  // namespace

void RaiseFileSystemError(const char* operation, unsigned long error,
                          const std::filesystem::path& path,
                          const std::filesystem::path& secondPath) {
    const std::error_code code(static_cast<int>(error), std::system_category());
    if (secondPath.empty()) {
        throw std::filesystem::filesystem_error(operation, PrintablePath(path), code);
    }
    throw std::filesystem::filesystem_error(operation, PrintablePath(path),
                                            PrintablePath(secondPath), code);
}

bool IsNotFoundError(unsigned long error) noexcept {
    switch (error) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
        case ERROR_BAD_NETPATH:
        case ERROR_BAD_NET_NAME:
        case ERROR_INVALID_NAME:
            return true;
        default:
            return false;
    }
}

}  // namespace updater
