#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "support/windows_api.h"

namespace updater::faults {

enum class FailureKind {
    /// The function does nothing and reports failure.
    Refused,
    /// What the function closes is closed, and yet it reports failure.
    ClosedButReported,
    /// The clock has jumped ahead when the function reads it.
    ClockJumps,
    /// The function succeeds, but hands out no process.
    WithoutProcess,
};

/// One way in which a function fails: what it returns, and the last error that it sets.
struct CallFailure {
    std::string_view function;
    std::intptr_t result;
    DWORD error;
    FailureKind kind = FailureKind::Refused;
};

inline constexpr std::intptr_t kFalse = 0;
inline constexpr std::intptr_t kMinusOne = -1;
inline constexpr std::intptr_t kStatusUnsuccessful = static_cast<std::int32_t>(0xC0000001U);
inline constexpr std::intptr_t kHresultFailure = static_cast<std::int32_t>(0x80004005U);

/// How each function fails that the updater calls. A function that is called and stands neither
/// here nor in `kWithoutFailure` does not compile. Several lines for one function are several
/// faults of it.
inline constexpr auto kCallFailures = std::to_array<CallFailure>({
    {"AddAccessAllowedAce", kFalse, ERROR_ALLOTTED_SPACE_EXCEEDED},
    {"BCryptCloseAlgorithmProvider", kStatusUnsuccessful, 0, FailureKind::ClosedButReported},
    {"BCryptCreateHash", kStatusUnsuccessful, 0},
    {"BCryptDestroyHash", kStatusUnsuccessful, 0, FailureKind::ClosedButReported},
    {"BCryptFinishHash", kStatusUnsuccessful, 0},
    {"BCryptHashData", kStatusUnsuccessful, 0},
    {"BCryptOpenAlgorithmProvider", kStatusUnsuccessful, 0},
    {"CloseHandle", kFalse, ERROR_INVALID_HANDLE, FailureKind::ClosedButReported},
    {"CoCreateGuid", kHresultFailure, 0},
    {"CommandLineToArgvW", kFalse, ERROR_NOT_ENOUGH_MEMORY},
    {"ConvertStringSecurityDescriptorToSecurityDescriptorW", kFalse, ERROR_NOT_ENOUGH_MEMORY},
    {"CopyFileW", kFalse, ERROR_DISK_FULL},
    {"CreateDirectoryW", kFalse, ERROR_DISK_FULL},
    {"CreateEventW", kFalse, ERROR_NOT_ENOUGH_MEMORY},
    {"CreateFileW", kMinusOne, ERROR_SHARING_VIOLATION},
    {"CreateMutexW", kFalse, ERROR_ACCESS_DENIED},
    {"CreateProcessW", kFalse, ERROR_ACCESS_DENIED},
    {"CreateToolhelp32Snapshot", kMinusOne, ERROR_NOT_ENOUGH_MEMORY},
    {"CreateWellKnownSid", kFalse, ERROR_INVALID_PARAMETER},
    {"DeleteFileW", kFalse, ERROR_SHARING_VIOLATION},
    {"FindClose", kFalse, ERROR_INVALID_HANDLE, FailureKind::ClosedButReported},
    {"FindFirstFileExW", kMinusOne, ERROR_ACCESS_DENIED},
    {"FindNextFileW", kFalse, ERROR_CRC},
    {"FlushFileBuffers", kFalse, ERROR_ACCESS_DENIED},
    {"GetAce", kFalse, ERROR_INVALID_PARAMETER},
    {"GetExitCodeProcess", kFalse, ERROR_ACCESS_DENIED},
    {"GetFileAttributesExW", kFalse, ERROR_ACCESS_DENIED},
    {"GetFileAttributesW", kMinusOne, ERROR_ACCESS_DENIED},
    {"GetFileInformationByHandleEx", kFalse, ERROR_ACCESS_DENIED},
    {"GetFileVersionInfoSizeW", kFalse, ERROR_SHARING_VIOLATION},
    {"GetFileVersionInfoW", kFalse, ERROR_SHARING_VIOLATION},
    {"GetFinalPathNameByHandleW", kFalse, ERROR_ACCESS_DENIED},
    {"GetFullPathNameW", kFalse, ERROR_NOT_ENOUGH_MEMORY},
    {"GetTickCount64", 0, 0, FailureKind::ClockJumps},
    {"GetTokenInformation", kFalse, ERROR_ACCESS_DENIED},
    {"GetVolumeNameForVolumeMountPointW", kFalse, ERROR_ACCESS_DENIED},
    {"GetVolumePathNameW", kFalse, ERROR_ACCESS_DENIED},
    {"LocalFree", kMinusOne, ERROR_INVALID_HANDLE, FailureKind::ClosedButReported},
    {"MessageBoxW", kFalse, ERROR_NOT_ENOUGH_MEMORY},
    {"MoveFileExW", kFalse, ERROR_SHARING_VIOLATION},
    {"MultiByteToWideChar", kFalse, ERROR_INVALID_PARAMETER},
    {"OpenEventW", kFalse, ERROR_ACCESS_DENIED},
    {"OpenProcess", kFalse, ERROR_ACCESS_DENIED},
    {"OpenProcessToken", kFalse, ERROR_ACCESS_DENIED},
    {"Process32FirstW", kFalse, ERROR_NOT_ENOUGH_MEMORY},
    {"Process32NextW", kFalse, ERROR_NOT_ENOUGH_MEMORY},
    {"QueryFullProcessImageNameW", kFalse, ERROR_GEN_FAILURE},
    {"ReadFile", kFalse, ERROR_CRC},
    {"RegCloseKey", ERROR_INVALID_HANDLE, 0, FailureKind::ClosedButReported},
    {"RegGetValueW", ERROR_ACCESS_DENIED, 0},
    {"RegOpenKeyExW", ERROR_ACCESS_DENIED, 0},
    {"RegSetValueExW", ERROR_ACCESS_DENIED, 0},
    {"RemoveDirectoryW", kFalse, ERROR_SHARING_VIOLATION},
    {"SHGetKnownFolderPath", kHresultFailure, 0},
    {"SetEnvironmentVariableW", kFalse, ERROR_NOT_ENOUGH_MEMORY},
    {"SetEvent", kFalse, ERROR_ACCESS_DENIED},
    {"SetFileAttributesW", kFalse, ERROR_ACCESS_DENIED},
    {"SetTokenInformation", kFalse, ERROR_ACCESS_DENIED},
    {"ShellExecuteExW", kFalse, ERROR_CANCELLED},
    {"ShellExecuteExW", kFalse, ERROR_ACCESS_DENIED},
    {"ShellExecuteExW", TRUE, 0, FailureKind::WithoutProcess},
    {"StringFromGUID2", 0, 0},
    {"VerQueryValueW", kFalse, 0},
    {"WaitForMultipleObjects", kMinusOne, ERROR_INVALID_HANDLE},
    {"WaitForSingleObject", kMinusOne, ERROR_INVALID_HANDLE},
    {"WideCharToMultiByte", kFalse, ERROR_INVALID_PARAMETER},
    {"WriteFile", kFalse, ERROR_DISK_FULL},
});

/// Other numbers of the same refusals, most of them reasons to try again elsewhere: one more each
/// for the first call in which function and callers are the same.
inline constexpr auto kFurtherFailures = std::to_array<CallFailure>({
    {"CopyFileW", kFalse, ERROR_SHARING_VIOLATION},
    {"CreateDirectoryW", kFalse, ERROR_ALREADY_EXISTS},
    {"CreateFileW", kMinusOne, ERROR_ACCESS_DENIED},
    {"CreateMutexW", kFalse, ERROR_BUSY},
    {"CreateToolhelp32Snapshot", kMinusOne, ERROR_BAD_LENGTH},
    {"DeleteFileW", kFalse, ERROR_LOCK_VIOLATION},
    {"FindNextFileW", kFalse, ERROR_BUSY},
    {"GetFileAttributesExW", kFalse, ERROR_SHARING_VIOLATION},
    {"GetFileVersionInfoSizeW", kFalse, ERROR_LOCK_VIOLATION},
    {"MoveFileExW", kFalse, ERROR_ACCESS_DENIED},
    {"OpenEventW", kFalse, ERROR_BUSY},
    {"OpenProcess", kFalse, ERROR_INVALID_PARAMETER},
    {"Process32FirstW", kFalse, ERROR_BAD_LENGTH},
    {"QueryFullProcessImageNameW", kFalse, ERROR_PARTIAL_COPY},
    {"ReadFile", kFalse, ERROR_LOCK_VIOLATION},
    {"RegOpenKeyExW", ERROR_BUSY, 0},
    {"RegSetValueExW", ERROR_BUSY, 0},
    {"RemoveDirectoryW", kFalse, ERROR_DIR_NOT_EMPTY},
});

/// Functions that report no failure.
inline constexpr auto kWithoutFailure = std::to_array<std::string_view>({
    "CoTaskMemFree",      // returns nothing
    "EqualSid",           // compares in memory
    "GetCommandLineW",    // a pointer that the process always has
    "GetCurrentProcess",  // a constant
    "GetLastError",       // the error of another call
    "_wcsicmp",           // compares in memory
    "wcsrchr",            // looks in memory
});

constexpr bool CanFail(std::string_view function) {
    return std::ranges::find(kCallFailures, function, &CallFailure::function) !=
           kCallFailures.end();
}

constexpr bool IsListed(std::string_view function) {
    return CanFail(function) ||
           std::ranges::find(kWithoutFailure, function) != kWithoutFailure.end();
}

}  // namespace updater::faults
