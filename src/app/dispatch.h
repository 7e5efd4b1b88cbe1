#pragma once

namespace updater {

/// Runs the mode that the process command line selects and returns the process exit code. A failure
/// that a mode did not handle is written to the status file as "failed", and 1 is returned. Without
/// a job directory to write to, or when that write fails, the failure of the report is raised.
int RunUpdater();

}  // namespace updater
