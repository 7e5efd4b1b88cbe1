#pragma once

#include <memory>

#include "support/windows_api.h"

namespace updater {

struct HandleCloser {
    using pointer = HANDLE;
    void operator()(HANDLE handle) const noexcept { CloseHandle(handle); }
};

/// Owns a kernel object's handle and closes it with `CloseHandle`. Null is the only invalid value.
using UniqueHandle = std::unique_ptr<void, HandleCloser>;

/// Takes ownership of a handle that a Windows call has just returned; the invalid-handle value
/// becomes null. Leaves the thread's last error as it is.
inline UniqueHandle OwnHandle(HANDLE handle) noexcept {
    return UniqueHandle(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
}

struct LocalMemoryReleaser {
    using pointer = HLOCAL;
    void operator()(HLOCAL memory) const noexcept { LocalFree(memory); }
};

/// Owns memory that Windows allocated for the caller to release with `LocalFree`.
using UniqueLocalMemory = std::unique_ptr<void, LocalMemoryReleaser>;

}  // namespace updater
