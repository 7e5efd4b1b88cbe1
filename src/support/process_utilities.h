#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "support/handle.h"

namespace updater {

/// Whether the current process runs with an elevated token. Raises `std::runtime_error` "Cannot
/// inspect process token" or "Cannot inspect elevation".
bool IsProcessElevated();

/// Returns a new GUID in its registry form: 38 characters, upper case, braces included. Raises
/// `std::runtime_error` "Cannot create update job identity".
std::wstring CreateJobIdentity();

/// Returns the full path, in drive-letter form, of the process's executable. The handle needs
/// limited-query rights. Raises `std::runtime_error` "Cannot inspect application process".
std::wstring GetProcessImagePath(HANDLE process);

/// Whether both paths name the same file: equal canonical forms, the letters A to Z without regard
/// to case. Raises `std::filesystem::filesystem_error`, operation "weakly_canonical".
bool IsSamePath(const std::filesystem::path& path, const std::filesystem::path& otherPath);

/// Opens the process, which is to run `executable`, for waiting and limited queries. Raises
/// `std::runtime_error` with the given message if it cannot be opened or runs something else, and
/// what `GetProcessImagePath` and `IsSamePath` do.
UniqueHandle OpenProcessOf(const std::filesystem::path& executable, std::uint32_t processId,
                           const char* mismatch);

/// Makes sure that no process but the allowed one (0: none) runs `applicationPath`. Only processes
/// named `kApplicationExecutable` are looked at; one that cannot be opened counts as running it.
/// Raises
/// `std::runtime_error` "Cannot enumerate running applications", "Another application instance is
/// running; close it first" or "Another application instance is inaccessible; close it first", and
/// what `GetProcessImagePath` and `IsSamePath` do.
void EnsureNoOtherInstance(const std::filesystem::path& applicationPath,
                           std::uint32_t allowedProcessId);

/// Whether the object becomes signalled (a process: ends) within so many milliseconds. A wait that
/// fails counts as not signalled.
bool IsSignalledWithin(HANDLE object, std::uint32_t milliseconds);

/// Waits for the process's end without a limit and returns its exit code, or 1 if that cannot be
/// read.
std::uint32_t AwaitExitCode(HANDLE process);

enum class LaunchWait { None, UntilExit };

/// Starts a program without a console window and without inherited handles; `arguments` is the
/// command line's text after the program, already quoted. Waits for its end without a limit if
/// told so and then returns its exit code (1 if that cannot be read), else 0. Raises
/// `std::runtime_error` "Process launch failed: " followed by the Windows error number.
std::uint32_t LaunchProcess(const std::filesystem::path& executable, const std::wstring& arguments,
                            const std::filesystem::path& workingDirectory, LaunchWait wait);

}  // namespace updater
