#include "worker/worker.h"

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "support/application_identity.h"
#include "support/exit_code.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/handshake.h"
#include "support/process_utilities.h"
#include "support/status_file.h"
#include "support/windows_api.h"
#include "worker/install_mutex.h"
#include "worker/installation.h"
#include "worker/staging.h"
#include "worker/worker_options.h"

namespace updater {

namespace {

HandshakeEvents OpenHandshakeEvents(const std::wstring& baseName) {
    HandshakeEvents events;
    events.ready =
        OwnHandle(OpenEventW(EVENT_MODIFY_STATE, FALSE, ReadyEventName(baseName).c_str()));
    events.commit = OwnHandle(OpenEventW(SYNCHRONIZE, FALSE, CommitEventName(baseName).c_str()));
    if (!events.ready || !events.commit) {
        throw std::runtime_error("Update broker is missing");
    }
    return events;
}

int CancelUpdate(const std::filesystem::path& jobDirectory,
                 const std::filesystem::path& stagingDirectory) {
    // The record's exit code is 0 here: only the process exit code tells the cancellation apart.
    WriteUpdateStatus(jobDirectory, kStateCancelled,
                      "Application remained open; installation cancelled", kExitSucceeded);
    RemoveTree(stagingDirectory);
    return kExitCancelled;
}

}  // namespace

int RunWorker(const UpdaterArguments& arguments) {
    if (!IsProcessElevated()) {
        throw std::runtime_error("Administrator authorization is required");
    }
    const WorkerOptions options = ReadWorkerOptions(arguments);
    const UniqueHandle mutex = AcquireInstallMutex();
    const std::filesystem::path applicationPath = ApplicationPath(options.installDirectory);
    const UniqueHandle parent =
        OpenProcessOf(applicationPath, options.parentProcessId,
                      "Installation directory does not match the running application");
    EnsureNoOtherInstance(applicationPath, options.parentProcessId);
    const HandshakeEvents events = OpenHandshakeEvents(RequireArgument(arguments, kEventOption));

    const std::filesystem::path stagingDirectory = CreateStagingDirectory();
    const std::filesystem::path setupProgram =
        StageSetupProgram(options.setupProgram, stagingDirectory, options.size, options.sha256);
    WriteUpdateStatus(options.jobDirectory, kStateAuthorized,
                      "Administrator authorization accepted", kExitSucceeded);
    SetEvent(events.ready.get());

    if (!IsSignalledWithin(events.commit.get(), kHandshakeLimit) ||
        !IsSignalledWithin(parent.get(), kExitLimitAfterCommit)) {
        return CancelUpdate(options.jobDirectory, stagingDirectory);
    }
    return InstallUpdate({options.installDirectory, options.jobDirectory, stagingDirectory,
                          setupProgram, options.version});
}

}  // namespace updater
