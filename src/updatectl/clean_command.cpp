#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>

#include "support/application_identity.h"
#include "support/canonical_path.h"
#include "support/handle.h"
#include "support/process_utilities.h"
#include "support/windows_api.h"
#include "updatectl/command_options.h"
#include "updatectl/leftover_staging.h"
#include "updatectl/output.h"
#include "updatectl/progress_line.h"
#include "updatectl/protected_directory.h"
#include "updatectl/tool.h"
#include "worker/install_mutex.h"
#include "worker/staging.h"

namespace updater {

namespace {

constexpr char kHelp[] =
    R"(Usage: <tool> clean [--keep N] [--dry-run] [--setup-dir DIR]

Removes the staging directories that earlier updates left, "<staging>{...}" in the folder of
all users' data (usually C:\ProgramData), and says what became of each. A staging directory holds the
backup of the program before an update; after an interrupted update see first what
'<tool> restore --help' says. Needs an administrator's rights. While an update is being
installed nothing is removed; nor is, ever, a directory whose setup program still runs.

Anybody may make directories of such names. One that does not belong to the administrators or to the
system, that others can change, or that is a link, is not taken for the updater's: it is neither
removed nor counted, and the reason is told. The same holds for directories in it.

  --keep N          keep the newest N
  --dry-run         remove nothing, only say what would be
  --setup-dir DIR   for a setup program: the directory that it lies in. If that is a staging
                    directory, the updater has started the setup program, and its update is not in
                    the way; that directory and newer ones are left alone

The exit code is 1 if anything of such a name is there that was neither to be kept nor left alone.
)";

constexpr std::wstring_view kKeepOption = L"--keep";
constexpr std::uint32_t kMostKept = 999'999'999;
constexpr std::wstring_view kDryRunFlag = L"--dry-run";
constexpr std::wstring_view kSetupDirectoryOption = L"--setup-dir";

// The staging directory whose setup program runs this command. Empty when the user has started the
// setup program, or when no setup program runs this.
std::filesystem::path CurrentStaging(const CommandOptions& options,
                                     const std::filesystem::path& folder) {
    if (!options.values.contains(kSetupDirectoryOption)) {
        return {};
    }
    const std::filesystem::path directory =
        CanonicalPath(OnlyValue(options, kSetupDirectoryOption));
    if (!IsStagingName(directory.filename().native()) ||
        !IsSamePath(directory.parent_path(), folder)) {
        return {};
    }
    return folder / directory.filename();
}

bool IsUpdateBeingInstalled() {
    const UniqueHandle mutex = OwnHandle(OpenMutexW(SYNCHRONIZE, FALSE, kInstallMutex));
    return mutex || GetLastError() == ERROR_ACCESS_DENIED;
}

// Returns what keeps updates out until it is closed: nothing within an update, whose worker does
// that.
UniqueHandle KeepUpdatesOut(bool withinUpdate) {
    if (!withinUpdate) {
        return AcquireInstallMutex();
    }
    if (!IsUpdateBeingInstalled()) {
        throw std::runtime_error("The updater that started the setup program has ended");
    }
    return nullptr;
}

// From when on directories belong to the update that is being installed, or to one that was started
// after this one's worker was ended.
std::uint64_t StartOfCurrent(const StagingListing& listing, const std::filesystem::path& current) {
    if (current.empty()) {
        return std::numeric_limits<std::uint64_t>::max();
    }
    const auto own = std::ranges::find(listing.leftovers, current, &ProtectedDirectory::path);
    if (own == listing.leftovers.end()) {
        throw std::runtime_error("The setup program does not lie in a directory of the updater's");
    }
    return own->created;
}

std::size_t ReadKeep(const CommandOptions& options) {
    const std::optional<std::wstring> text = OptionalValue(options, kKeepOption);
    return text ? ReadNumber(kKeepOption, *text, {0, kMostKept}) : 0;
}

void RemoveStaging(ProtectedDirectory& directory) {
    const std::filesystem::path path = directory.path;
    ProtectedTree tree = OpenProtectedTree(std::move(directory));
    if (IsSetupRunning(path)) {
        throw std::runtime_error("its setup program is still running");
    }
    RemoveProtectedTree(std::move(tree));
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

void Tell(const ProtectedDirectory& directory, const char* what) {
    PrintOutput(TimeText(directory.created) + "  " + PrintableText(directory.path.native()) + "  " +
                what + "\n");
}

// Returns whether it is gone.
bool RemoveAndTell(ProtectedDirectory& directory) {
    const ProtectedDirectory told = {directory.path, nullptr, directory.created};
    try {
        const ProgressLine progress("Removing");
        RemoveStaging(directory);
    } catch (const std::exception& failure) {
        PrintError("Cannot remove " + PrintableText(told.path.native()) + ": " + failure.what() +
                   "\n");
        return false;
    }
    Tell(told, "removed");
    return true;
}

// Returns whether there was nothing to tell.
bool TellOthers(const StagingListing& listing) {
    for (const std::string& reason : listing.others) {
        PrintError("Left as it is: " + reason + "\n");
    }
    return listing.others.empty();
}

int RunClean(std::span<const std::wstring> tokens) {
    const CommandOptions options =
        ReadCommandOptions(tokens, {kDryRunFlag}, {kKeepOption, kSetupDirectoryOption});
    RequireOperands(options, {});
    const std::size_t keep = ReadKeep(options);
    const bool dryRun = options.values.contains(kDryRunFlag);
    RequireAdministrator();
    DistrustLinksOfUsers();
    const std::filesystem::path folder = MachineDataFolder();
    const std::filesystem::path current = CurrentStaging(options, folder);
    const UniqueHandle mutex = dryRun ? nullptr : KeepUpdatesOut(!current.empty());

    StagingListing listing = FindStagingDirectories(folder);
    if (listing.leftovers.empty()) {
        PrintOutput("There is no leftover staging directory.\n");
    }
    int exitCode = TellOthers(listing) ? kToolDone : kToolFailed;
    const std::uint64_t startOfCurrent = StartOfCurrent(listing, current);
    std::size_t kept = 0;
    for (ProtectedDirectory& directory : listing.leftovers) {
        if (directory.created >= startOfCurrent) {
            Tell(directory, "in use");
        } else if (kept < keep) {
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
