#include "end_to_end/uninstall_entry.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <memory>
#include <system_error>

#include "support/windows_api.h"

namespace updater {

namespace {

constexpr wchar_t kEntryKey[] =
    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\"
    L"5D1E7B20-3C9A-4F68-B2D4-9E0A6C7F1B35_is1";

constexpr wchar_t kVersionValue[] = L"DisplayVersion";

// The longest name of a value, and more than any value of the entry holds.
constexpr DWORD kNameUnits = 16384;
constexpr DWORD kDataBytes = 65536;

struct KeyCloser {
    using pointer = HKEY;
    void operator()(HKEY key) const noexcept { RegCloseKey(key); }
};
using UniqueKey = std::unique_ptr<void, KeyCloser>;

void Check(LSTATUS status, const char* action) {
    if (status != ERROR_SUCCESS) {
        throw std::system_error(static_cast<int>(status), std::system_category(), action);
    }
}

UniqueKey OpenEntry() {
    HKEY key = nullptr;
    const LSTATUS status =
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, kEntryKey, 0, KEY_READ | KEY_WOW64_64KEY, &key);
    return UniqueKey(status == ERROR_SUCCESS ? key : nullptr);
}

UniqueKey CreateEntry() {
    HKEY key = nullptr;
    Check(RegCreateKeyExW(HKEY_LOCAL_MACHINE, kEntryKey, 0, nullptr, 0, KEY_WRITE | KEY_WOW64_64KEY,
                          nullptr, &key, nullptr),
          "Cannot create the uninstall entry");
    return UniqueKey(key);
}

void DeleteEntry() {
    const LSTATUS status = RegDeleteKeyExW(HKEY_LOCAL_MACHINE, kEntryKey, KEY_WOW64_64KEY, 0);
    if (status != ERROR_FILE_NOT_FOUND) {
        Check(status, "Cannot delete the uninstall entry");
    }
}

}  // namespace

UninstallEntry ReadUninstallEntry() {
    UninstallEntry entry;
    const UniqueKey key = OpenEntry();
    for (DWORD index = 0; key; ++index) {
        std::wstring name(kNameUnits, L'\0');
        std::vector<unsigned char> data(kDataBytes);
        DWORD units = kNameUnits;
        DWORD bytes = kDataBytes;
        DWORD type = 0;
        const LSTATUS status = RegEnumValueW(key.get(), index, name.data(), &units, nullptr, &type,
                                             data.data(), &bytes);
        if (status == ERROR_NO_MORE_ITEMS) {
            break;
        }
        Check(status, "Cannot read the uninstall entry");
        name.resize(units);
        data.resize(bytes);
        entry.push_back({name, type, data});
    }
    return entry;
}

void WriteUninstallEntry(const UninstallEntry& entry) {
    DeleteEntry();
    if (entry.empty()) {
        return;
    }
    const UniqueKey key = CreateEntry();
    for (const RegistryValue& value : entry) {
        Check(RegSetValueExW(key.get(), value.name.c_str(), 0, value.type, value.data.data(),
                             static_cast<DWORD>(value.data.size())),
              "Cannot write the uninstall entry");
    }
}

UninstallEntry WithoutValue(UninstallEntry entry, const std::wstring& name) {
    std::erase_if(entry, [&](const RegistryValue& value) { return value.name == name; });
    return entry;
}

std::wstring RegisteredVersion() {
    const UninstallEntry entry = ReadUninstallEntry();
    const auto found = std::ranges::find(entry, kVersionValue, &RegistryValue::name);
    if (found == entry.end() || found->type != REG_SZ) {
        return {};
    }
    std::wstring text(found->data.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), found->data.data(), text.size() * sizeof(wchar_t));
    text.resize(std::wcslen(text.c_str()));
    return text;
}

UninstallEntryKeeper::~UninstallEntryKeeper() {
    try {
        WriteUninstallEntry(entry);
    } catch (const std::system_error&) {
        // The next reader of the entry will notice.
    }
}

}  // namespace updater
