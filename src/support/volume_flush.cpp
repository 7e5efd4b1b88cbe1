#include "support/volume_flush.h"

#include <array>
#include <cwchar>

#include "support/handle.h"
#include "support/windows_api.h"

namespace updater {

bool FlushVolumeOf(const std::filesystem::path& directory) noexcept {
    // The longest form: \\?\Volume{GUID}\ and its end.
    std::array<wchar_t, 50> volume{};
    std::array<wchar_t, MAX_PATH> mountPoint{};
    if (GetVolumePathNameW(directory.c_str(), mountPoint.data(),
                           static_cast<DWORD>(mountPoint.size())) == 0 ||
        GetVolumeNameForVolumeMountPointW(mountPoint.data(), volume.data(),
                                          static_cast<DWORD>(volume.size())) == 0) {
        return false;
    }
    // With the separator at its end it would be the root directory.
    if (wchar_t* const end = std::wcsrchr(volume.data(), L'\\'); end[1] == L'\0') {
        *end = L'\0';
    }
    const UniqueHandle handle =
        OwnHandle(CreateFileW(volume.data(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, OPEN_EXISTING, 0, nullptr));
    return handle && FlushFileBuffers(handle.get()) != 0;
}

}  // namespace updater
