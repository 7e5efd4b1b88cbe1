#include <cstddef>
#include <exception>
#include <stdexcept>

#include "support/file_system.h"
#include "support/handle.h"
#include "support/number_text.h"
#include "support/windows_api.h"
#include "updatectl/command_options.h"
#include "updatectl/leftover_staging.h"
#include "updatectl/output.h"
#include "updatectl/progress_line.h"
#include "updatectl/tool.h"
#include "worker/install_mutex.h"
#include "worker/staging.h"

namespace updater {

namespace {

constexpr char kHelp[] =
    R"(Usage: corvellan-updatectl clean [--keep N] [--dry-run]

Removes the staging directories that earlier updates left, "CorvellanUpdate-{...}" in the folder of
all users' data (usually C:\ProgramData), and says what became of each. A staging directory holds the
backup of the program before an update; after an interrupted update see first what
'corvellan-updatectl restore --help' says. Needs an administrator's rights. While an update is being
installed nothing is removed; nor is, ever, a directory whose setup program still runs or that
another user has made.

  --keep N    keep the newest N
  --dry-run   remove nothing, only say what would be; needs no rights

The exit code is 1 if a directory was to be removed and is still there.
)";

constexpr std::wstring_view kKeepOption = L"--keep";
constexpr std::wstring_view kDryRunFlag = L"--dry-run";

std::size_t ReadKeep(const CommandOptions& options) {
    if (!options.values.contains(kKeepOption)) {
        return 0;
    }
    const std::wstring text = OnlyValue(options, kKeepOption);
    constexpr std::size_t kMostDigits = 9;
    if (text.find_first_not_of(L"0123456789") != std::wstring::npos || text.size() > kMostDigits) {
        throw UsageError("--keep needs a number, not " + PrintableText(text));
    }
    return ParseUnsigned32(text);
}

void RemoveStaging(const std::filesystem::path& directory) {
    if (!IsOwnedByAdministrator(directory)) {
        throw std::runtime_error("another user has made it");
    }
    if (IsSetupRunning(directory)) {
        throw std::runtime_error("its setup program is still running");
    }
    RemoveTree(directory);
}

std::string TimeText(std::uint64_t time) {
    FILETIME fileTime{};
    fileTime.dwLowDateTime = static_cast<DWORD>(time);
    fileTime.dwHighDateTime = static_cast<DWORD>(time >> 32U);
    SYSTEMTIME parts{};
    FileTimeToSystemTime(&fileTime, &parts);
    const auto twoDigits = [](unsigned number) {
        return (number < 10 ? "0" : "") + std::to_string(number);
    };
    return std::to_string(parts.wYear) + "-" + twoDigits(parts.wMonth) + "-" +
           twoDigits(parts.wDay) + "T" + twoDigits(parts.wHour) + ":" + twoDigits(parts.wMinute) +
           ":" + twoDigits(parts.wSecond) + "Z";
}

void Tell(const LeftoverStaging& directory, const char* what) {
    PrintOutput(TimeText(directory.created) + "  " + PrintableText(directory.path.native()) + "  " +
                what + "\n");
}

// Returns whether it is gone.
bool RemoveAndTell(const LeftoverStaging& directory) {
    try {
        const ProgressLine progress("Removing");
        RemoveStaging(directory.path);
    } catch (const std::exception& failure) {
        PrintError("Cannot remove " + PrintableText(directory.path.native()) + ": " +
                   failure.what() + "\n");
        return false;
    }
    Tell(directory, "removed");
    return true;
}

int RunClean(std::span<const std::wstring> tokens) {
    const CommandOptions options = ReadCommandOptions(tokens, {kDryRunFlag}, {kKeepOption});
    RequireOperands(options, {});
    const std::size_t keep = ReadKeep(options);
    const bool dryRun = options.values.contains(kDryRunFlag);
    UniqueHandle mutex;
    if (!dryRun) {
        RequireAdministrator();
        mutex = AcquireInstallMutex();
    }

    const std::vector<LeftoverStaging> found = ListLeftoverStaging(MachineDataFolder());
    if (found.empty()) {
        PrintOutput("There is no leftover staging directory.\n");
    }
    int exitCode = kToolDone;
    std::size_t kept = 0;
    for (const LeftoverStaging& directory : found) {
        if (kept < keep) {
            ++kept;
            Tell(directory, "kept");
        } else if (dryRun) {
            Tell(directory, "would be removed");
        } else if (!RemoveAndTell(directory)) {
            exitCode = kToolFailed;
        }
    }
    return exitCode;
}

}  // namespace

const ToolCommand kCleanCommand = {L"clean", kHelp, RunClean};

}  // namespace updater
