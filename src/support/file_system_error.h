#pragma once

#include <filesystem>

namespace updater {

/// Raises `std::filesystem::filesystem_error` for the named operation of the filesystem library,
/// the Windows error number and the path (and second path, unless that is empty) that it was about.
/// The message is valid UTF-8 also for a path that is not valid UTF-16.
[[noreturn]] void RaiseFileSystemError(const char* operation, unsigned long error,
                                       const std::filesystem::path& path,
                                       const std::filesystem::path& secondPath = {});

/// Whether the Windows error number says that nothing of that name exists, as opposed to something
/// that exists and could not be reached.
bool IsNotFoundError(unsigned long error) noexcept;

}  // namespace updater
