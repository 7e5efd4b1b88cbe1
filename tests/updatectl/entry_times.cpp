#include "updatectl/entry_times.h"

#include <system_error>

#include "support/handle.h"
#include "support/windows_api.h"

namespace updater {

void SetTimes(const std::filesystem::path& directory, std::uint64_t time) {
    const UniqueHandle handle =
        OwnHandle(CreateFileW(directory.c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING,
                              FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    const FILETIME fileTime{static_cast<DWORD>(time), static_cast<DWORD>(time >> 32U)};
    if (SetFileTime(handle.get(), &fileTime, nullptr, &fileTime) == 0) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(),
                                "Cannot set a directory's times");
    }
}

}  // namespace updater
