#include "support/uninstall_entry.h"

#include <memory>
#include <stdexcept>

#include "support/process_utilities.h"

namespace updater {

namespace {

// Spelled out here once more: the key is part of what is tested.
constexpr wchar_t kEntryKey[] =
    LR"(SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\5D1E7B20-3C9A-4F68-B2D4-9E0A6C7F1B35_is1)";

constexpr wchar_t kSavedKeyBase[] = LR"(SOFTWARE\Corvellan updater test )";

struct KeyCloser {
    using pointer = HKEY;
    void operator()(HKEY key) const noexcept { RegCloseKey(key); }
};
using UniqueKey = std::unique_ptr<void, KeyCloser>;

UniqueKey OpenKey(const wchar_t* path, REGSAM access) {
    HKEY key = nullptr;
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, access, &key);
    return UniqueKey(key);
}

UniqueKey CreateKey(const wchar_t* path, REGSAM access) {
    HKEY key = nullptr;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, access, nullptr, &key, nullptr) !=
        ERROR_SUCCESS) {
        throw std::runtime_error("Cannot write the registry");
    }
    return UniqueKey(key);
}

void MoveKey(const wchar_t* from, const wchar_t* to) {
    const UniqueKey source = OpenKey(from, KEY_READ | KEY_WOW64_64KEY);
    if (source) {
        const UniqueKey target = CreateKey(to, KEY_ALL_ACCESS | KEY_WOW64_64KEY);
        if (RegCopyTreeW(source.get(), nullptr, target.get()) != ERROR_SUCCESS) {
            throw std::runtime_error("Cannot copy a registry key");
        }
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, from);
    }
}

}  // namespace

ScopedUninstallEntry::ScopedUninstallEntry() : savedKey(kSavedKeyBase + CreateJobIdentity()) {
    MoveKey(kEntryKey, savedKey.c_str());
}

ScopedUninstallEntry::~ScopedUninstallEntry() {
    RegDeleteKeyExW(HKEY_LOCAL_MACHINE, kEntryKey, KEY_WOW64_32KEY, 0);
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kEntryKey);
    try {
        MoveKey(savedKey.c_str(), kEntryKey);
    } catch (const std::runtime_error&) {
        // The entry then stays under its other name, to be put back by hand.
    }
}

void WriteUninstallEntry(const std::wstring& name, const RegistryValue& value, RegistryView view) {
    const UniqueKey key = CreateKey(kEntryKey, KEY_SET_VALUE | static_cast<REGSAM>(view));
    if (RegSetValueExW(key.get(), name.c_str(), 0, value.type,
                       reinterpret_cast<const BYTE*>(value.bytes.data()),
                       static_cast<DWORD>(value.bytes.size())) != ERROR_SUCCESS) {
        throw std::runtime_error("Cannot write the registry");
    }
}

std::optional<RegistryValue> ReadUninstallEntry(const std::wstring& name, RegistryView view) {
    const UniqueKey key = OpenKey(kEntryKey, KEY_QUERY_VALUE | static_cast<REGSAM>(view));
    RegistryValue value{REG_NONE, std::string(4096, '\0')};
    DWORD bytes = static_cast<DWORD>(value.bytes.size());
    if (!key ||
        RegQueryValueExW(key.get(), name.c_str(), nullptr, &value.type,
                         reinterpret_cast<BYTE*>(value.bytes.data()), &bytes) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    value.bytes.resize(bytes);
    return value;
}

bool UninstallEntryExists(RegistryView view) {
    return OpenKey(kEntryKey, KEY_QUERY_VALUE | static_cast<REGSAM>(view)) != nullptr;
}

RegistryValue RegistryText(const std::wstring& text) {
    return {REG_SZ, std::string(reinterpret_cast<const char*>(text.c_str()),
                                (text.size() + 1) * sizeof(wchar_t))};
}

}  // namespace updater
