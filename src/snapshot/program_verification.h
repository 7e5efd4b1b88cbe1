#pragma once

#include <filesystem>
#include <functional>
#include <string>

namespace updater {

// The program inventory lists the files of one version with their SHA-256 digests. It is UTF-8
// without a byte-order mark, one entry a line and nothing else: the file's path relative to the
// installation directory, a tab, and 64 lower-case hexadecimal digits. Lines end in a line feed,
// before which one carriage return is accepted.

/// Takes a line of the inventory, without its line feed.
using InventoryLineVisitor = std::function<void(const std::string& line)>;

/// Calls the visitor for each line of the installed inventory, in its order. Raises
/// `std::runtime_error` "Installed program inventory is missing"; "Installed program inventory is
/// empty", also when not even its beginning can be read; and `kInvalidInventory`
/// (inventory_entry.h) when reading fails midway, after the lines that were read before.
void VisitInventory(const std::filesystem::path& installDirectory,
                    const InventoryLineVisitor& visit);

/// Checks the file that one line of the inventory lists. Raises `std::runtime_error`: the messages
/// of inventory_entry.h, "SHA256 verification failed" for a file that is missing or unreadable, and
/// "Installed program checksum mismatch: " followed by the path as the inventory gives it.
void VerifyInventoryLine(const std::filesystem::path& installDirectory, const std::string& line);

/// Checks every file that the installed inventory lists, in its order, and stops at the first that
/// differs. Raises what opening the inventory, reading it and checking one line raise.
void VerifyInstalledProgram(const std::filesystem::path& installDirectory);

}  // namespace updater
