#pragma once

#include <filesystem>
#include <functional>
#include <span>

#include "support/handle.h"

namespace updater {

// Files are read by the Windows calls, not by the library's file streams: some libraries' streams
// take a read that fails for the end of the file.

/// Opens an existing file to read it from its beginning; others may read and write it meanwhile.
/// Null when it cannot be opened; a directory cannot.
UniqueHandle OpenFileToRead(const std::filesystem::path& file) noexcept;

/// Takes the next bytes of a file, which are its own until it returns; returns whether to go on.
using PortionVisitor = std::function<bool(std::span<char> portion)>;

/// Reads the file to its end and hands its bytes to the visitor in portions of 64 KiB; the last one
/// is shorter, and may be empty. Returns whether the visitor has got the whole file: false as soon
/// as the visitor does not go on, or a read fails; what was read before that has been handed over.
bool VisitPortions(HANDLE file, const PortionVisitor& visit);

}  // namespace updater
