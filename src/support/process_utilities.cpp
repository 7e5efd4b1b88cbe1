#include "support/process_utilities.h"

// After the Windows types that they need.
#include <objbase.h>
#include <tlhelp32.h>

#include <array>
#include <cwchar>
#include <stdexcept>

#include "support/application_identity.h"
#include "support/argument_quoting.h"
#include "support/canonical_path.h"

namespace updater {

namespace {

constexpr DWORD kWaitAndQuery = SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION;

// The longest path that Windows can hold, in UTF-16 units.
constexpr DWORD kLongestPath = 32768;

void EnsureIsNoInstance(const PROCESSENTRY32W& entry,
                        const std::filesystem::path& applicationPath) {
    if (_wcsicmp(entry.szExeFile, kApplicationExecutable) != 0) {
        return;
    }
    const UniqueHandle process = OwnHandle(OpenProcess(kWaitAndQuery, FALSE, entry.th32ProcessID));
    if (!process) {
        throw std::runtime_error("Another application instance is inaccessible; close it first");
    }
    if (IsSignalledWithin(process.get(), 0)) {
        return;
    }
    if (IsSamePath(GetProcessImagePath(process.get()), applicationPath)) {
        throw std::runtime_error("Another application instance is running; close it first");
    }
}

}  // namespace

bool IsProcessElevated() {
    HANDLE opened = nullptr;
    if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened) == 0) {
        throw std::runtime_error("Cannot inspect process token");
    }
    const UniqueHandle token = OwnHandle(opened);
    TOKEN_ELEVATION elevation{};
    DWORD length = 0;
    if (GetTokenInformation(token.get(), TokenElevation, &elevation, sizeof(elevation), &length) ==
        0) {
        throw std::runtime_error("Cannot inspect elevation");
    }
    return elevation.TokenIsElevated != 0;
}

std::wstring CreateJobIdentity() {
    GUID identity{};
    if (FAILED(CoCreateGuid(&identity))) {
        throw std::runtime_error("Cannot create update job identity");
    }
    std::array<wchar_t, 40> text{};
    StringFromGUID2(identity, text.data(), static_cast<int>(text.size()));
    return text.data();
}

std::wstring GetProcessImagePath(HANDLE process) {
    std::wstring path(kLongestPath, L'\0');
    DWORD length = kLongestPath;
    if (QueryFullProcessImageNameW(process, 0, path.data(), &length) == 0) {
        throw std::runtime_error("Cannot inspect application process");
    }
    path.resize(length);
    return path;
}

bool IsSamePath(const std::filesystem::path& path, const std::filesystem::path& otherPath) {
    const std::filesystem::path otherCanonical = WeaklyCanonicalPath(otherPath);
    const std::filesystem::path canonical = WeaklyCanonicalPath(path);
    return _wcsicmp(canonical.c_str(), otherCanonical.c_str()) == 0;
}

UniqueHandle OpenProcessOf(const std::filesystem::path& executable, std::uint32_t processId,
                           const char* mismatch) {
    UniqueHandle process = OwnHandle(OpenProcess(kWaitAndQuery, FALSE, processId));
    if (!process || !IsSamePath(GetProcessImagePath(process.get()), executable)) {
        throw std::runtime_error(mismatch);
    }
    return process;
}

void EnsureNoOtherInstance(const std::filesystem::path& applicationPath,
                           std::uint32_t allowedProcessId) {
    const UniqueHandle snapshot = OwnHandle(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof(entry);
    if (!snapshot || Process32FirstW(snapshot.get(), &entry) == 0) {
        throw std::runtime_error("Cannot enumerate running applications");
    }
    do {
        if (entry.th32ProcessID != allowedProcessId) {
            EnsureIsNoInstance(entry, applicationPath);
        }
    } while (Process32NextW(snapshot.get(), &entry) != 0);
}

bool IsSignalledWithin(HANDLE object, std::uint32_t milliseconds) {
    return WaitForSingleObject(object, milliseconds) == WAIT_OBJECT_0;
}

std::uint32_t AwaitExitCode(HANDLE process) {
    WaitForSingleObject(process, INFINITE);
    DWORD exitCode = 0;
    return GetExitCodeProcess(process, &exitCode) != 0 ? exitCode : 1;
}

std::uint32_t LaunchProcess(const std::filesystem::path& executable, const std::wstring& arguments,
                            const std::filesystem::path& workingDirectory, LaunchWait wait) {
    std::wstring commandLine = QuoteArgument(executable.native()) + L' ' + arguments;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    if (CreateProcessW(executable.c_str(), commandLine.data(), nullptr, nullptr, FALSE,
                       CREATE_NO_WINDOW, nullptr, workingDirectory.c_str(), &startup,
                       &started) == 0) {
        throw std::runtime_error("Process launch failed: " + std::to_string(GetLastError()));
    }
    const UniqueHandle thread = OwnHandle(started.hThread);
    const UniqueHandle process = OwnHandle(started.hProcess);
    return wait == LaunchWait::UntilExit ? AwaitExitCode(process.get()) : 0;
}

}  // namespace updater
