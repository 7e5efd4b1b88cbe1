#pragma once

#include <filesystem>

namespace updater {

// The program inventory lists the files of one version with their SHA-256 digests. It is UTF-8
// without a byte-order mark, one entry a line and nothing else: the file's path relative to the
// installation directory, a tab, and 64 lower-case hexadecimal digits. Lines end in a line feed,
// before which one carriage return is accepted.

/// Checks every file that the installed inventory lists, in its order, and stops at the first that
/// differs. Raises `std::runtime_error`: "Installed program inventory is missing", "Installed
/// program inventory is empty", the messages of inventory_entry.h, "SHA256 verification failed" for
/// a file that is missing or unreadable, and "Installed program checksum mismatch: " followed by
/// the path as the inventory gives it.
void VerifyInstalledProgram(const std::filesystem::path& installDirectory);

}  // namespace updater
