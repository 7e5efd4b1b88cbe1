#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "support/windows_api.h"

namespace updater {

/// A value of the registry as it is stored.
struct RegistryValue {
    DWORD type = REG_NONE;
    std::string bytes;
};

/// Keeps the application's entry in the list of installed programs out of a test's way: moved
/// aside at first, so that there is none, and put back at the end of the scope, whatever the test
/// has made of it. Raises `std::runtime_error` when the registry cannot be written.
struct ScopedUninstallEntry {
    ScopedUninstallEntry();
    ~ScopedUninstallEntry();
    ScopedUninstallEntry(const ScopedUninstallEntry&) = delete;
    ScopedUninstallEntry& operator=(const ScopedUninstallEntry&) = delete;

    std::wstring savedKey;
};

/// The views of the registry that 64-bit and 32-bit programs have.
enum class RegistryView : REGSAM { Of64Bit = KEY_WOW64_64KEY, Of32Bit = KEY_WOW64_32KEY };

/// Creates the entry, or changes it, so that it holds this value under this name.
void WriteUninstallEntry(const std::wstring& name, const RegistryValue& value,
                         RegistryView view = RegistryView::Of64Bit);

/// Returns a value of the entry, or nothing.
std::optional<RegistryValue> ReadUninstallEntry(const std::wstring& name,
                                                RegistryView view = RegistryView::Of64Bit);

bool UninstallEntryExists(RegistryView view = RegistryView::Of64Bit);

/// Returns the text as the registry stores it, with its terminating zero.
RegistryValue RegistryText(const std::wstring& text);

}  // namespace updater
