#pragma once

#include <filesystem>
#include <string>

namespace updater {

/// Returns the file version of an executable's version resource as four decimal numbers joined by
/// dots, for example 2.1.0.0. Raises `std::runtime_error` "Cannot read installed executable
/// version" when the file has no version resource or cannot be read, and "Executable version is
/// missing" when the resource holds no fixed version information.
std::wstring ReadExecutableVersion(const std::filesystem::path& executable);

/// Returns the version under which the application is registered in the system's list of installed
/// programs, or an empty text when it cannot be read.
std::wstring ReadRegisteredVersion();

/// Writes the registered version back; an empty text changes nothing. Raises `std::runtime_error`
/// "Cannot restore registered version" when the application is not registered or the value cannot
/// be written.
void RestoreRegisteredVersion(const std::wstring& previousVersion);

}  // namespace updater
