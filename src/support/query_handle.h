#pragma once

#include <filesystem>

#include "support/handle.h"

namespace updater {

/// Opens a file or directory, links followed, to ask about it and nothing else; others may do with
/// it what they like meanwhile. Null, with the thread's last error set, when it cannot be opened.
inline UniqueHandle OpenForQuery(const std::filesystem::path& path) noexcept {
    return OwnHandle(CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES,
                                 FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                 OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

}  // namespace updater
