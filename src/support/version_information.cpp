#include "support/version_information.h"

#include <array>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <vector>

#include "support/application_identity.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr wchar_t kRegisteredVersionValue[] = L"DisplayVersion";

constexpr std::size_t kRegisteredVersionUnits = 512;

struct KeyCloser {
    using pointer = HKEY;
    void operator()(HKEY key) const noexcept { RegCloseKey(key); }
};
using UniqueKey = std::unique_ptr<void, KeyCloser>;

std::vector<std::byte> ReadVersionResource(const std::filesystem::path& executable) {
    const DWORD bytes = GetFileVersionInfoSizeW(executable.c_str(), nullptr);
    std::vector<std::byte> resource(bytes);
    if (bytes == 0 || GetFileVersionInfoW(executable.c_str(), 0, bytes, resource.data()) == 0) {
        throw std::runtime_error("Cannot read installed executable version");
    }
    return resource;
}

}  // namespace

std::wstring ReadExecutableVersion(const std::filesystem::path& executable) {
    const std::vector<std::byte> resource = ReadVersionResource(executable);
    void* block = nullptr;
    UINT bytes = 0;
    if (VerQueryValueW(resource.data(), L"\\", &block, &bytes) == 0 ||
        bytes < sizeof(VS_FIXEDFILEINFO)) {
        throw std::runtime_error("Executable version is missing");
    }
    const auto* version = static_cast<const VS_FIXEDFILEINFO*>(block);
    // Not `std::to_wstring`, which with some toolchains brings in the runtime's wide formatting.
    return Utf8ToWide(std::to_string(HIWORD(version->dwFileVersionMS)) + '.' +
                      std::to_string(LOWORD(version->dwFileVersionMS)) + '.' +
                      std::to_string(HIWORD(version->dwFileVersionLS)) + '.' +
                      std::to_string(LOWORD(version->dwFileVersionLS)));
}

std::wstring ReadRegisteredVersion() {
    std::array<wchar_t, kRegisteredVersionUnits> text{};
    DWORD bytes = sizeof(text);
    if (RegGetValueW(HKEY_LOCAL_MACHINE, kUninstallKey, kRegisteredVersionValue,
                     RRF_RT_REG_SZ | RRF_SUBKEY_WOW6464KEY, nullptr, text.data(),
                     &bytes) != ERROR_SUCCESS) {
        return {};
    }
    return text.data();
}

void RestoreRegisteredVersion(const std::wstring& previousVersion) {
    if (previousVersion.empty()) {
        return;
    }
    HKEY opened = nullptr;
    const LSTATUS openStatus = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kUninstallKey, 0,
                                             KEY_SET_VALUE | KEY_WOW64_64KEY, &opened);
    const UniqueKey key(openStatus == ERROR_SUCCESS ? opened : nullptr);
    const auto bytes = static_cast<DWORD>((previousVersion.size() + 1) * sizeof(wchar_t));
    if (!key || RegSetValueExW(key.get(), kRegisteredVersionValue, 0, REG_SZ,
                               reinterpret_cast<const BYTE*>(previousVersion.c_str()),
                               bytes) != ERROR_SUCCESS) {
        throw std::runtime_error("Cannot restore registered version");
    }
}

}  // namespace updater
