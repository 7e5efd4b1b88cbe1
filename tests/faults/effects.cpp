#include "faults/effects.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace updater::faults {

namespace {

constexpr char kInstanceInaccessible[] =
    "Another application instance is inaccessible; close it first";
constexpr char kDigestFailed[] = "SHA256 verification failed";
constexpr char kDigestUnavailable[] = "SHA256 initialization failed";
constexpr char kInstallationLinked[] = "Reparse points are not supported in installation directory";
constexpr char kAssetsLinked[] = "Reparse points are not supported in program assets";
constexpr char kVersionUnreadable[] = "Cannot read installed executable version";
constexpr char kStatusUnwritable[] = "Cannot write update status";
constexpr char kRegistrationLost[] = "Cannot restore registered version";
constexpr char kProcessesUnknown[] = "Cannot enumerate running applications";

// What holds in every mode.
constexpr auto kGeneralRules = std::to_array<Rule>({
    // What is released is released, whatever the release reports.
    {"BCryptCloseAlgorithmProvider", "", L"", kNothing},
    {"BCryptDestroyHash", "", L"", kNothing},
    {"CloseHandle", "", L"", kNothing},
    {"FindClose", "", L"", kNothing},
    {"LocalFree", "", L"", kNothing},
    {"RegCloseKey", "", L"", kNothing},

    {"BCryptOpenAlgorithmProvider", "", L"", Raises(kDigestUnavailable)},
    {"BCryptCreateHash", "", L"", Raises(kDigestUnavailable)},
    {"BCryptHashData", "", L"", Raises(kDigestFailed)},
    {"BCryptFinishHash", "", L"", Raises(kDigestFailed)},
    {"CreateFileW", "FileSha256Hex", L"", Raises(kDigestFailed)},
    {"ReadFile", "FileSha256Hex", L"", Raises(kDigestFailed)},

    // Nothing was read, or not all.
    {"CreateFileW", "VisitInventory", L"", Raises("Installed program inventory is missing")},
    {"ReadFile", "VisitInventory", L"", Raises("Installed program inventory is empty"),
     Turn::First},
    {"ReadFile", "VisitInventory", L"", Raises("Invalid program inventory")},

    // Without its temporary file there is nothing to move.
    {"CreateFileW", "WriteUpdateStatus", L"", Raises(kStatusUnwritable)},
    {"WriteFile", "WriteUpdateStatus", L"", kEmptyRecord},
    {"MoveFileExW", "", L"", Raises(kStatusUnwritable)},

    {"CreateFileW", "CanonicalPath", L"", RaisesFileSystem("canonical")},
    {"GetFinalPathNameByHandleW", "CanonicalPath", L"", RaisesFileSystem("canonical")},
    {"CreateFileW", "WeaklyCanonicalPath", L"", RaisesFileSystem("weakly_canonical")},
    {"GetFinalPathNameByHandleW", "WeaklyCanonicalPath", L"", RaisesFileSystem("weakly_canonical")},
    {"GetFullPathNameW", "", L"", RaisesFileSystem("weakly_canonical")},
    {"GetFileAttributesExW", "PathExists", L"", RaisesFileSystem("exists")},
    {"CreateFileW", "PathExists", L"", RaisesFileSystem("exists")},
    {"GetFileInformationByHandleEx", "PathExists", L"", RaisesFileSystem("exists")},
    {"GetFileAttributesExW", "FileSize", L"", RaisesFileSystem("file_size")},

    // A file that is in the way because of its attributes: the first error stands.
    {"GetFileAttributesW", "ClearProtection", L"added.dll",
     RaisesFileSystem("remove", ERROR_ACCESS_DENIED)},
    {"SetFileAttributesW", "ClearProtection", L"added.dll",
     RaisesFileSystem("remove", ERROR_ACCESS_DENIED)},
    {"GetFileAttributesW", "ClearProtection", L"app.so",
     RaisesFileSystem("copy_file", ERROR_ACCESS_DENIED)},
    {"SetFileAttributesW", "ClearProtection", L"app.so",
     RaisesFileSystem("copy_file", ERROR_ACCESS_DENIED)},
    {"DeleteFileW", "RemoveFile", L"", RaisesFileSystem("remove")},
    {"CopyFileW", "", L"", RaisesFileSystem("copy_file")},

    // What is not seen is tried, and found to be there already.
    {"GetFileAttributesW", "CreateDirectories", L"", kNothing},
    {"CreateDirectoryW", "CreateDirectories", L"", RaisesFileSystem("create_directories")},

    // A directory that is not seen as one is deleted as a file, which the system refuses.
    {"GetFileAttributesW", "IsLink", L"", kNothing},
    {"GetFileAttributesW", "RemoveTree", L"installer.exe", kNothing},
    {"GetFileAttributesW", "RemoveTree", L"", RaisesFileSystem("remove_all", ERROR_ACCESS_DENIED)},
    {"FindFirstFileExW", "RemoveTree", L"", RaisesFileSystem("remove_all")},
    {"FindNextFileW", "RemoveTree", L"", RaisesFileSystem("remove_all")},
    {"DeleteFileW", "RemoveTree", L"", RaisesFileSystem("remove_all")},
    {"RemoveDirectoryW", "RemoveTree", L"", RaisesFileSystem("remove_all")},

    {"GetFileAttributesW", "AddTopLevelAssets", L"", Raises(kInstallationLinked)},
    {"GetFileAttributesW", "AddDataAssets", L"", Raises(kAssetsLinked)},
    {"FindFirstFileExW", "AddTopLevelAssets", L"",
     RaisesFileSystem("directory_iterator::directory_iterator")},
    {"FindNextFileW", "AddTopLevelAssets", L"", RaisesFileSystem("directory_iterator::operator++")},
    {"FindFirstFileExW", "AddDataAssets", L"\\data\\*",
     RaisesFileSystem("recursive_directory_iterator::recursive_directory_iterator")},
    {"FindFirstFileExW", "AddDataAssets", L"",
     RaisesFileSystem("recursive_directory_iterator::operator++")},
    {"FindNextFileW", "AddDataAssets", L"",
     RaisesFileSystem("recursive_directory_iterator::operator++")},

    // The update goes on without what the step would have been good for.
    {"OpenProcessToken", "GrantAdministratorsAccessByDefault", L"", kNothing},
    {"GetTokenInformation", "GrantAdministratorsAccessByDefault", L"", kNothing},
    {"CreateWellKnownSid", "", L"", kNothing},
    {"GetAce", "", L"", kNothing},
    {"AddAccessAllowedAce", "", L"", kNothing},
    {"SetTokenInformation", "", L"", kNothing},
    {"GetVolumePathNameW", "", L"", kNothing},
    {"GetVolumeNameForVolumeMountPointW", "", L"", kNothing},
    {"CreateFileW", "FlushVolumeOf", L"", kNothing},
    {"FlushFileBuffers", "", L"", kNothing},
    {"SetEnvironmentVariableW", "", L"",
     Raises("Cannot redirect the setup program's temporary files")},

    {"OpenProcessToken", "", L"", Raises("Cannot inspect process token")},
    {"GetTokenInformation", "", L"", Raises("Cannot inspect elevation")},
    {"CoCreateGuid", "", L"", Raises("Cannot create update job identity")},
    // The name is then the empty text, and free.
    {"StringFromGUID2", "", L"", kNothing},
    {"QueryFullProcessImageNameW", "", L"", Raises("Cannot inspect application process")},
    {"CreateToolhelp32Snapshot", "", L"", Raises(kProcessesUnknown)},
    {"Process32FirstW", "", L"", Raises(kProcessesUnknown)},
    // The list ends; the instance that it would still have shown runs from another directory.
    {"Process32NextW", "", L"", kNothing},
    {"OpenProcess", "EnsureNoOtherInstance", L"", Raises(kInstanceInaccessible)},
    // The instance counts as running, but from another directory.
    {"WaitForSingleObject", "EnsureNoOtherInstance", L"", kNothing},
    {"CreateProcessW", "", L"", Raises("Process launch failed: 5")},

    {"GetFileVersionInfoSizeW", "", L"", Raises(kVersionUnreadable)},
    {"GetFileVersionInfoW", "", L"", Raises(kVersionUnreadable)},
    {"VerQueryValueW", "", L"", Raises("Executable version is missing")},
    {"RegOpenKeyExW", "", L"", Raises(kRegistrationLost)},
    {"RegSetValueExW", "", L"", Raises(kRegistrationLost)},

    // The tokens are lost, the job directory with them.
    {"CommandLineToArgvW", "", L"", kNeverStarts},
});

bool IsFirstOfItsKind(const Fault& fault) {
    const Call& failed = fault.FailedCall();
    const auto end = fault.calls.begin() + static_cast<std::ptrdiff_t>(fault.index);
    return std::none_of(fault.calls.begin(), end, [&failed](const Call& call) {
        return call.function == failed.function && call.callers == failed.callers &&
               call.argument == failed.argument;
    });
}

bool Fits(const Rule& rule, const Fault& fault) {
    const Call& call = fault.FailedCall();
    return rule.function == call.function && (rule.caller.empty() || IsWithin(call, rule.caller)) &&
           call.argument.ends_with(rule.argumentEnd) &&
           (rule.turn == Turn::Any || IsFirstOfItsKind(fault));
}

}  // namespace

const Effect& EffectOf(const Fault& fault, std::span<const Rule> specificRules) {
    for (const std::span<const Rule> rules :
         {specificRules, std::span<const Rule>(kGeneralRules)}) {
        const auto rule = std::ranges::find_if(
            rules, [&fault](const Rule& candidate) { return Fits(candidate, fault); });
        if (rule != rules.end()) {
            return rule->effect;
        }
    }
    throw std::runtime_error("No rule tells what must follow");
}

std::string RaisedMessage(const Effect& effect, const Fault& fault) {
    std::string text(effect.text);
    if (effect.kind != EffectKind::RaisesFileSystemError) {
        return text;
    }
    const DWORD error = effect.error != 0 ? effect.error : fault.failure.error;
    return std::filesystem::filesystem_error(
               text, std::error_code(static_cast<int>(error), std::system_category()))
        .what();
}

}  // namespace updater::faults
