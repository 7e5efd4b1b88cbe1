#pragma once

#include <filesystem>
#include <string>

namespace updater {

/// What the updater is called.
inline constexpr wchar_t kUpdaterName[] = L"corvellan-updater.exe";

/// The environment variable that names an updater to test in place of the one that this build made,
/// for example one that has been signed.
inline constexpr wchar_t kOtherUpdaterVariable[] = L"CORVELLAN_OTHER_UPDATER";

// The programs that a whole update consists of, as the build made them.

std::filesystem::path RealUpdater();
std::filesystem::path ElevationStandIn();

/// The page that tells how to put the previous program back.
std::filesystem::path RecoveryPage();

/// Returns a setup program of the application by its name, for example L"v2".
std::filesystem::path SetupProgram(const std::wstring& name);

}  // namespace updater
