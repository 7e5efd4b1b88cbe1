#pragma once

namespace updater {

/// Process exit codes of every mode. The values are part of the contract with the application.
enum ExitCode : int {
    kExitSucceeded = 0,
    kExitFailed = 1,
    kExitCancelled = 2,
    /// A failure that could not be reported anywhere.
    kExitUnreported = 3,
};

}  // namespace updater
