#pragma once

#include <filesystem>

namespace updater {

// Whose updater this is. The build makes the values from one file (see docs/building.md); a program
// for another application differs in application_identity.cpp's object alone.

/// The application's executable, directly in its installation directory.
extern const wchar_t kApplicationExecutable[];

/// The updater, beside it.
extern const wchar_t kUpdaterExecutable[];

/// The application's directory in the user's local data.
extern const wchar_t kLocalDirectory[];

/// The application's entry in the list of installed programs, under HKEY_LOCAL_MACHINE. Its setup
/// program names the key by the application's identifier.
extern const wchar_t kUninstallKey[];

/// In the global namespace: one installation of the application at a time on the machine.
extern const wchar_t kInstallMutex[];

/// The handshake's events begin with this; the job identity (see `CreateJobIdentity`) follows.
extern const wchar_t kHandshakePrefix[];

/// A staging directory's name begins with this; the job identity follows.
extern const wchar_t kStagingPrefix[];

/// The error box: its title, and its first line with a line feed.
extern const wchar_t kErrorBoxTitle[];
extern const wchar_t kStatusHeading[];

/// The release tool's name without ".exe", what the updater is called, and a word in capital
/// letters that stands for the application's executable. UTF-8.
extern const char kReleaseTool[];
extern const char kUpdaterDescription[];
extern const char kExecutableWord[];

/// The file list with digests that every version ships directly in its installation directory.
inline constexpr wchar_t kProgramInventory[] = L"program-files.tsv";

/// Returns the application's executable in `installDirectory`, which is used as it stands.
inline std::filesystem::path ApplicationPath(const std::filesystem::path& installDirectory) {
    return installDirectory / kApplicationExecutable;
}

}  // namespace updater
