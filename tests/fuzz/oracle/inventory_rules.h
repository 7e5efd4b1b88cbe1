#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace updater {

/// The rules of the program inventory's lines, worked out in another way than the product's.

struct ExpectedEntry {
    std::string path;
    std::string digest;
};

/// Returns what a line without its line feed holds, or nothing for an invalid one.
std::optional<ExpectedEntry> ExpectedInventoryEntry(std::string_view line);

/// Returns the message with which the path is refused, or an empty text.
std::string ExpectedPathError(const std::wstring& path);

/// Whether the path begins with a separator and so lies on the installation directory's drive
/// rather than in that directory, unless it is refused.
bool BeginsAtDriveRoot(std::wstring_view path);

}  // namespace updater
