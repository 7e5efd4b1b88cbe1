#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "client/corvellan_update.h"
#include "support/handle.h"

namespace updater {

// Other instances of the application use the same files, and a virus scanner looks at new ones:
// what somebody has open at the moment is tried again for about a second.

/// Returns a file's bytes, but of a longer one only more than `limit` of them; nothing when there
/// is none. Raises `ClientFailure` APP_UPDATE_FILE_ERROR for one that cannot be read.
std::optional<std::string> ReadFileUpTo(const std::filesystem::path& file, std::size_t limit);

/// Replaces a file, or makes a new one: after a failure, or a power cut, it is as before or
/// complete. Raises `ClientFailure` APP_UPDATE_FILE_ERROR or APP_UPDATE_DISK_FULL.
void ReplaceWholeFile(const std::filesystem::path& file, std::string_view content);

/// Moves a file to another name on its volume, in place of what has that name, such that a power
/// cut does not undo it. When it returns false, the last error tells why.
bool MoveWholeFile(const std::filesystem::path& from, const std::filesystem::path& target);

/// Whether a name is that of a draft of the file of the other name: a process that ended in the
/// middle of `ReplaceWholeFile` leaves one beside the file.
bool IsDraftOf(std::wstring_view file, std::wstring_view name);

/// Makes a file that one process at a time can have, or waits for whoever has it; it goes with the
/// handle. Null when that one does not let go, or the file cannot be made.
UniqueHandle TakeLockFile(const std::filesystem::path& file);

/// Operations on a file.
inline constexpr char kCannotRead[] = "Cannot read";
inline constexpr char kCannotWrite[] = "Cannot write";

/// Returns what the failure of an operation on a file is: APP_UPDATE_DISK_FULL or else
/// APP_UPDATE_FILE_ERROR.
AppUpdateResult FileFailureResult(unsigned long error) noexcept;

/// Raises `ClientFailure` for an operation, such as these, on a file or directory and the
/// Windows error number.
[[noreturn]] void RaiseFileFailure(std::string_view operation, const std::filesystem::path& path,
                                   unsigned long error);

}  // namespace updater
