#pragma once

#include <windows.h>

#include <memory>

namespace corvellan {

struct HandleCloser {
    using pointer = HANDLE;
    void operator()(HANDLE handle) const noexcept {
        if (handle != INVALID_HANDLE_VALUE) {
            CloseHandle(handle);
        }
    }
};

/// Owns a kernel object's handle.
using UniqueHandle = std::unique_ptr<void, HandleCloser>;

}  // namespace corvellan
