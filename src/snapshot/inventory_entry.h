#pragma once

#include <string>
#include <string_view>

namespace updater {

// The text rules of the program inventory, free of any access to files. A path may separate its
// elements by backslashes and slashes alike.

/// The message of an inventory that cannot be read as one.
inline constexpr char kInvalidInventory[] = "Invalid program inventory";

/// One line of the inventory: the part before the first tab, and everything after it.
struct InventoryEntry {
    std::string path;
    std::string digest;
};

/// Splits a line that was cut off at its line feed; one carriage return at its end is removed.
/// Raises `std::runtime_error` with `kInvalidInventory` when there is no tab.
InventoryEntry ParseInventoryLine(std::string_view line);

/// Refuses a path that could leave the installation directory. Raises `std::runtime_error` "Invalid
/// program inventory path" for a drive, device or network share prefix, and "Invalid program
/// inventory traversal" for an element of two dots.
void CheckInventoryPath(std::wstring_view path);

/// Returns the path under `directory`. A path that begins with a separator keeps only the
/// directory's drive or share; an empty path gives the directory with a separator at its end.
std::wstring AppendInventoryPath(std::wstring_view directory, std::wstring_view path);

}  // namespace updater
