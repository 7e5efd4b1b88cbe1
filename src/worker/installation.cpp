#include "worker/installation.h"

#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>

#include "snapshot/program_backup.h"
#include "snapshot/program_restore.h"
#include "snapshot/program_verification.h"
#include "support/application_identity.h"
#include "support/argument_quoting.h"
#include "support/exit_code.h"
#include "support/extended_length_path.h"
#include "support/process_utilities.h"
#include "support/status_file.h"
#include "support/text_conversion.h"
#include "support/version_information.h"
#include "support/volume_flush.h"
#include "support/windows_api.h"
#include "worker/staging.h"

namespace updater {

namespace {

// No window and no message box, no restart of the machine, and no closing or restarting of
// applications: the worker has made sure that the application is closed.
constexpr wchar_t kSilentSwitches[] =
    L"/VERYSILENT /SUPPRESSMSGBOXES /NORESTART /SP- /NOCLOSEAPPLICATIONS /NOFORCECLOSEAPPLICATIONS "
    L"/NORESTARTAPPLICATIONS";

// What the rollback needs to put the previous program back.
struct PreviousProgram {
    std::wstring version;
    std::wstring registeredVersion;
    std::filesystem::path backupDirectory;
    ProgramAssets backupRecord;
};

PreviousProgram RecordPreviousProgram(const Installation& installation) {
    PreviousProgram previous;
    previous.version = ReadExecutableVersion(ApplicationPath(installation.installDirectory));
    previous.registeredVersion = ReadRegisteredVersion();
    // The copies' paths are longer than those of the installed files, which may be as long as the
    // system allows.
    previous.backupDirectory = ExtendedLengthPath(installation.stagingDirectory / kBackupDirectory);
    previous.backupRecord = BackupProgram(installation.installDirectory, previous.backupDirectory);
    return previous;
}

// Inno Setup unpacks its engine where these variables say, and starts it there. The directory that
// they name otherwise is the user's own, where any program of the user could exchange it.
void KeepTemporaryFilesIn(const std::filesystem::path& directory) {
    for (const wchar_t* variable : {L"TMP", L"TEMP"}) {
        if (SetEnvironmentVariableW(variable, directory.c_str()) == 0) {
            throw std::runtime_error("Cannot redirect the setup program's temporary files");
        }
    }
}

void RunSetupProgram(const Installation& installation) {
    KeepTemporaryFilesIn(installation.stagingDirectory);
    const std::filesystem::path log = installation.stagingDirectory / kSetupLog;
    const std::wstring arguments = std::wstring(kSilentSwitches) + L" /DIR=" +
                                   QuoteArgument(installation.installDirectory.native()) +
                                   L" /LOG=" + QuoteArgument(log.native());
    const std::uint32_t exitCode = LaunchProcess(
        installation.setupProgram, arguments, installation.stagingDirectory, LaunchWait::UntilExit);
    if (exitCode != 0) {
        throw std::runtime_error("Inno Setup did not complete; exit code=" +
                                 std::to_string(exitCode));
    }
}

void InstallAndVerify(const Installation& installation) {
    WriteUpdateStatus(installation.jobDirectory, kStateInstalling, "Installing verified package",
                      kExitSucceeded);
    RunSetupProgram(installation);
    if (ReadExecutableVersion(ApplicationPath(installation.installDirectory)) !=
        installation.expectedVersion) {
        throw std::runtime_error("Installed executable version mismatch");
    }
    VerifyInstalledProgram(installation.installDirectory);
    WriteUpdateStatus(installation.jobDirectory, kStateSucceeded,
                      "Installed version " + WideToUtf8(installation.expectedVersion),
                      kExitSucceeded);
}

void RollBack(const Installation& installation, const PreviousProgram& previous,
              const std::string& failure) {
    const std::filesystem::path application = ApplicationPath(installation.installDirectory);
    EnsureNoOtherInstance(application, 0);
    RestoreProgram(installation.installDirectory, previous.backupDirectory, previous.backupRecord);
    RestoreRegisteredVersion(previous.registeredVersion);
    const bool restored = ReadExecutableVersion(application) == previous.version;
    WriteUpdateStatus(
        installation.jobDirectory, kStateFailed,
        failure + (restored ? "; previous program restored" : "; restore version mismatch"),
        kExitFailed);
}

}  // namespace

int InstallUpdate(const Installation& installation) {
    EnsureNoOtherInstance(ApplicationPath(installation.installDirectory), 0);
    const PreviousProgram previous = RecordPreviousProgram(installation);
    // So that the backup outlasts a loss of power from here on. Some volumes cannot be flushed; the
    // update is worth no less than without the attempt.
    static_cast<void>(FlushVolumeOf(installation.stagingDirectory));
    try {
        InstallAndVerify(installation);
        return kExitSucceeded;
    } catch (const std::exception& failure) {
        RollBack(installation, previous, failure.what());
        return kExitFailed;
    }
}

}  // namespace updater
