#pragma once

#include "support/updater_arguments.h"

namespace updater {

/// Carries out the elevated side of an update: verifies a protected copy of the setup program,
/// waits up to three minutes for the broker to commit and ten seconds for the application's exit,
/// and installs. Only one worker runs on a machine at a time. Returns the process exit code: 0
/// installed and verified, 1 failed and rolled back (the record says whether the previous version
/// is there again), 2 cancelled because the application stayed open. Raises `std::runtime_error`
/// and the standard library's errors when a step fails before anything was installed, or when
/// putting the previous program back fails.
int RunWorker(const UpdaterArguments& arguments);

}  // namespace updater
