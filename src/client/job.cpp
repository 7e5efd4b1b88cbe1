#include "client/job.h"

#include <array>
#include <utility>

#include "client/failure.h"
#include "client/removal.h"
#include "client/whole_file.h"
#include "support/application_identity.h"
#include "support/argument_quoting.h"
#include "support/file_system.h"
#include "support/text_conversion.h"
#include "support/updater_arguments.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr wchar_t kJobsDirectory[] = L"updates";
constexpr wchar_t kCancelMarker[] = L"cancel";

std::wstring CommandLineOf(const std::filesystem::path& updater, const UpdateJob& job,
                           const std::filesystem::path& jobDirectory) {
    const std::array<std::pair<const wchar_t*, std::wstring>, 7> options{{
        {kInstallDirOption, job.installDirectory.native()},
        {kJobDirOption, jobDirectory.native()},
        {kParentPidOption, std::to_wstring(GetCurrentProcessId())},
        {kInstallerOption, job.setup.native()},
        {kVersionOption, Utf8ToWide(VersionText(job.version))},
        {kSizeOption, std::to_wstring(job.setupSize)},
        {kSha256Option, Utf8ToWide(job.setupSha256)},
    }};
    std::wstring commandLine = QuoteArgument(updater.native()) + L' ' + kBrokerFlag;
    for (const auto& [name, value] : options) {
        commandLine.append(L" ").append(name).append(L" ").append(QuoteArgument(value));
    }
    return commandLine;
}

void CopyUpdater(const std::filesystem::path& installDirectory,
                 const std::filesystem::path& jobDirectory) {
    const std::filesystem::path updater = installDirectory / kUpdaterExecutable;
    if (!PathExists(updater)) {
        throw ClientFailure(APP_UPDATE_UPDATER_MISSING,
                            "There is no updater " + WideToUtf8(updater.native()),
                            ERROR_FILE_NOT_FOUND);
    }
    const std::filesystem::path copy = jobDirectory / kUpdaterExecutable;
    CopyToNewFile(updater, copy);
    // `IsUpdaterRunning` asks to write to it.
    ClearProtection(copy);
}

}  // namespace

std::filesystem::path JobsDirectory(const std::filesystem::path& dataDirectory) {
    return dataDirectory / kJobsDirectory;
}

std::filesystem::path CreateJobDirectory(const std::filesystem::path& dataDirectory,
                                         const std::wstring& identity,
                                         const std::filesystem::path& installDirectory) {
    std::filesystem::path jobDirectory = JobsDirectory(dataDirectory) / identity;
    CreateDirectories(jobDirectory);
    try {
        CopyUpdater(installDirectory, jobDirectory);
    } catch (...) {
        RemoveUnlessInUse(jobDirectory);
        throw;
    }
    return jobDirectory;
}

UniqueHandle StartUpdater(const UpdateJob& job, const std::filesystem::path& jobDirectory) {
    const std::filesystem::path updater = jobDirectory / kUpdaterExecutable;
    std::wstring commandLine = CommandLineOf(updater, job, jobDirectory);
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    // A working directory in the installation directory would be in the setup program's way.
    if (CreateProcessW(updater.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr,
                       jobDirectory.c_str(), &startup, &started) == 0) {
        const DWORD error = GetLastError();
        throw ClientFailure(APP_UPDATE_UPDATER_NOT_STARTED,
                            "Cannot start the updater " + WideToUtf8(updater.native()), error);
    }
    const UniqueHandle thread = OwnHandle(started.hThread);
    UniqueHandle process = OwnHandle(started.hProcess);
    AllowSetForegroundWindow(started.dwProcessId);
    return process;
}

void RequestGivingUp(const std::filesystem::path& jobDirectory) {
    ReplaceWholeFile(jobDirectory / kCancelMarker, {});
}

bool WasGivingUpRequested(const std::filesystem::path& jobDirectory) {
    return GetFileAttributesW((jobDirectory / kCancelMarker).c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool IsUpdaterRunning(const std::filesystem::path& jobDirectory) {
    // Windows lets nobody write to a program that runs.
    const UniqueHandle updater =
        OwnHandle(CreateFileW((jobDirectory / kUpdaterExecutable).c_str(), GENERIC_WRITE,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    return !updater && GetLastError() == ERROR_SHARING_VIOLATION;
}

}  // namespace updater
