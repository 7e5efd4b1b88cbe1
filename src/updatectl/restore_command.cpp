#include <exception>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "snapshot/inventory_entry.h"
#include "snapshot/program_assets.h"
#include "snapshot/program_restore.h"
#include "snapshot/program_verification.h"
#include "support/application_identity.h"
#include "support/canonical_path.h"
#include "support/extended_length_path.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/process_utilities.h"
#include "support/text_conversion.h"
#include "support/version_information.h"
#include "updatectl/command_options.h"
#include "updatectl/file_access.h"
#include "updatectl/file_names.h"
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
    R"(Usage: <tool> restore --staging DIR --install-dir DIR [--force]

Puts the previous program back after an update that was interrupted while the setup program ran, for
example because the machine lost power: program files that the backup in the staging directory does
not hold are deleted, all others are copied back and checked, as the updater itself does after a
failed installation. The user's own files stay as they are. It can be repeated after a failure.
Needs an administrator's rights.

  --staging DIR       the interrupted update's directory, "<staging>{...}" in the folder of
                      all users' data; '<tool> clean --dry-run' lists them by time
  --install-dir DIR   where the program is installed
  --force             restore from a backup that may be incomplete or damaged, too

The staging directory must belong to the administrators or to the system, nobody else may be able to
change it or a directory in it, and there may be no link in it: anybody may make a directory of such
a name, with a program in it that should not be put back.

Nothing is changed while the application or an update runs; nor, without --force, when the setup
program had not started yet (there is no install.log: then the installation is as it was, and what
the backup does not hold would be lost), or when the backup is not as its own inventory says.

The version that Windows shows for the program ("DisplayVersion") is not part of a backup; it is left
as it is, and shown.
)";

constexpr std::wstring_view kStagingOption = L"--staging";
constexpr std::wstring_view kInstallDirectoryOption = L"--install-dir";
constexpr std::wstring_view kForceFlag = L"--force";

// Canonical paths, the backup's in the form that may be longer than 260 characters, as it was made;
// and what keeps everybody else from exchanging the backup.
struct Places {
    std::filesystem::path staging;
    std::filesystem::path backup;
    std::filesystem::path install;
    ProtectedTree held;
};

bool Contains(const std::filesystem::path& directory, const std::filesystem::path& other) {
    // With one separator at the end, also for a drive's root, which has it already.
    return FoldCase((other / L"").native()).starts_with(FoldCase((directory / L"").native()));
}

Places OpenPlaces(const std::filesystem::path& staging, const std::filesystem::path& install) {
    // With a separator at its end a path may lead to what a link leads to.
    ProtectedDirectory opened = OpenProtectedDirectory((staging / L"").parent_path());
    opened.path = CanonicalPathOf(opened.handle.get(), opened.path);
    Places places;
    places.staging = opened.path;
    places.backup = ExtendedLengthPath(places.staging / kBackupDirectory);
    places.install = RequireDirectory(install);
    places.held = OpenProtectedTree(std::move(opened));
    return places;
}

void CheckStaging(const Places& places) {
    const std::string name = PrintableText(places.staging.native());
    if (!PathExists(ApplicationPath(places.backup))) {
        throw std::runtime_error("There is no backup of the program in " + name);
    }
    if (IsSetupRunning(places.staging)) {
        throw std::runtime_error("The setup program in " + name + " is still running");
    }
}

// The restore deletes programs and libraries that the backup does not hold, which would be fatal in
// any other directory than the application's own.
void CheckInstallDirectory(const Places& places) {
    const std::string name = PrintableText(places.install.native());
    if (Contains(places.install, places.staging) || Contains(places.staging, places.install)) {
        throw std::runtime_error(name + " and the staging directory lie within one another");
    }
    const ProgramAssets assets = EnumerateProgramAssets(places.install);
    if (!PathExists(ApplicationPath(places.install)) &&
        !PathExists(places.install / kProgramInventory) && !assets.empty()) {
        throw std::runtime_error(name + " is not where the application is installed");
    }
}

// Another application's backup may hold an executable of the same name.
void CheckStagingName(const std::filesystem::path& staging) {
    if (!IsStagingName(staging.filename().native())) {
        throw std::runtime_error(PrintableText(staging.native()) +
                                 " is not named as this application's updates name theirs");
    }
}

// Returns nothing for a file that is as the line lists it, or that is in no backup.
std::string FaultOfLine(const std::filesystem::path& backup, const std::string& line) {
    const std::wstring path = Utf8ToWide(ParseInventoryLine(line).path);
    if (!BelongsToBackup(std::filesystem::path(path).lexically_normal().make_preferred())) {
        return {};
    }
    try {
        VerifyInventoryLine(backup, line);
        return {};
    } catch (const std::exception& failure) {
        return "\n  " + PrintableText(path) + ": " + failure.what();
    }
}

// Says what of the backup is not as its own inventory lists it, one line each.
std::string BackupFaults(const std::filesystem::path& backup) {
    std::string faults;
    try {
        VisitInventory(backup,
                       [&](const std::string& line) { faults += FaultOfLine(backup, line); });
    } catch (const std::exception& failure) {
        faults += std::string("\n  ") + failure.what();
    }
    return faults;
}

void CheckCompleteness(const Places& places) {
    if (!PathExists(places.staging / kSetupLog)) {
        throw std::runtime_error(
            "The setup program had not started, so the installation is as it was, and the backup "
            "may be incomplete; see --force");
    }
    // Versions from before the application was updated in this way came without an inventory.
    if (!PathExists(places.backup / kProgramInventory)) {
        return;
    }
    if (const std::string faults = BackupFaults(places.backup); !faults.empty()) {
        throw std::runtime_error("The backup is not as its own inventory says; see --force:" +
                                 faults);
    }
}

void RestoreFrom(const Places& places, const ProgramAssets& record) {
    const std::filesystem::path application = ApplicationPath(places.install);
    EnsureNoOtherInstance(application, 0);
    const std::wstring version = VersionOf(ApplicationPath(places.staging / kBackupDirectory));
    try {
        RestoreProgram(places.install, places.backup, record);
    } catch (const std::exception& failure) {
        throw std::runtime_error(std::string("The program is only partly restored, repeat the "
                                             "command when the cause is removed: ") +
                                 failure.what());
    }
    if (VersionOf(application) != version) {
        throw std::runtime_error("The restored program has another version than its backup");
    }
}

void Report(const Places& places, std::size_t files) {
    const std::wstring registered = ReadRegisteredVersion();
    PrintOutput("Restored version " + PrintableText(VersionOf(ApplicationPath(places.install))) +
                " in " + PrintableText(places.install.native()) +
                ", files: " + std::to_string(files) +
                "\nThe version that Windows shows for the program was left as it is: " +
                (registered.empty() ? "none" : PrintableText(registered)) + "\n");
}

int RunRestore(std::span<const std::wstring> tokens) {
    const CommandOptions options =
        ReadCommandOptions(tokens, {kForceFlag}, {kStagingOption, kInstallDirectoryOption});
    RequireOperands(options, {});
    const std::wstring staging = OnlyValue(options, kStagingOption);
    const std::wstring install = OnlyValue(options, kInstallDirectoryOption);
    RequireAdministrator();
    DistrustLinksOfUsers();
    const UniqueHandle mutex = AcquireInstallMutex();
    const Places places = OpenPlaces(staging, install);
    CheckStaging(places);
    CheckInstallDirectory(places);
    CheckStagingName(places.staging);
    ProgramAssets record;
    {
        [[maybe_unused]] const ProgressLine progress("Restoring the program");
        if (!options.values.contains(kForceFlag)) {
            CheckCompleteness(places);
        }
        record = EnumerateProgramAssets(places.backup);
        RestoreFrom(places, record);
    }
    Report(places, record.size());
    return kToolDone;
}

}  // namespace

const ToolCommand kRestoreCommand = {L"restore", kHelp, RunRestore};

}  // namespace updater
