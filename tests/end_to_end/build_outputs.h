#pragma once

#include <filesystem>
#include <string>

namespace updater {

/// The environment variable that names an updater to test in place of the one that this build made,
/// for example one that has been signed.
inline constexpr wchar_t kOtherUpdaterVariable[] = L"CORVELLAN_OTHER_UPDATER";

// The programs that a whole update consists of, as the build made them.

/// What the application and the updater are called, and the title and the first line of the
/// updater's error box.
std::wstring ExecutableName();
std::wstring UpdaterName();
std::wstring ErrorBoxTitle();
std::wstring ErrorBoxHeading();

std::filesystem::path RealUpdater();
std::filesystem::path ElevationStandIn();

/// The page that tells how to put the previous program back.
std::filesystem::path RecoveryPage();

/// The tool with which a release is published.
std::filesystem::path ReleaseTool();

/// Returns a setup program of the application by its name, for example L"v2". Raises
/// `std::runtime_error` when it was not made.
std::filesystem::path SetupProgram(const std::wstring& name);

/// Returns the directory in which a version was put together for its setup programs, by its name,
/// for example L"v2".
std::filesystem::path ProgramDirectory(const std::wstring& name);

}  // namespace updater
