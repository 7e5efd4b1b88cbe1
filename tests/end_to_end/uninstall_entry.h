#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace updater {

// The application's entry in the list of installed programs; there is one on the machine, whatever
// the number of installation directories.

struct RegistryValue {
    std::wstring name;
    std::uint32_t type = 0;
    std::vector<unsigned char> data;
};

/// All values of the entry; none stands for no entry.
using UninstallEntry = std::vector<RegistryValue>;

UninstallEntry ReadUninstallEntry();

/// Replaces the entry; an entry without values is deleted. Raises `std::system_error`.
void WriteUninstallEntry(const UninstallEntry& entry);

/// Returns the entry without the value of this name.
UninstallEntry WithoutValue(UninstallEntry entry, const std::wstring& name);

/// Returns the registered version; empty if there is none.
std::wstring RegisteredVersion();

/// Puts the entry back at the end of the scope as it was at its beginning.
struct UninstallEntryKeeper {
    UninstallEntryKeeper() : entry(ReadUninstallEntry()) {}
    ~UninstallEntryKeeper();
    UninstallEntryKeeper(const UninstallEntryKeeper&) = delete;
    UninstallEntryKeeper& operator=(const UninstallEntryKeeper&) = delete;

    UninstallEntry entry;
};

}  // namespace updater
