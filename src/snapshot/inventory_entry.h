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

/// Raises `std::runtime_error` "Invalid program inventory path" for a path with a root name (a
/// drive, a device prefix or a network share's server), and "Invalid program inventory traversal"
/// for one with an element of two dots. A path that only begins with a separator passes; see
/// `AppendInventoryPath`.
void CheckInventoryPath(std::wstring_view path);

/// Returns the path under `directory`. A path that begins with a separator keeps only the
/// directory's root name; an empty path gives the directory with a separator at its end.
std::wstring AppendInventoryPath(std::wstring_view directory, std::wstring_view path);

}  // namespace updater
