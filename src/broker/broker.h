#pragma once

#include "support/updater_arguments.h"

namespace updater {

/// Carries out the unelevated side of an update: checks that the application of the installation
/// directory asked for it, starts the worker elevated, commits the update once the application has
/// exited, and afterwards restarts the application and shows an error box if the worker failed.
/// Returns the process exit code: the worker's own after the commit, else 1 for failed or 2 for
/// cancelled. Waits up to three minutes for the worker, up to three minutes for the application,
/// and without a limit for the installation and for the user to close the error box. Raises
/// `std::runtime_error` when a check or a step before the elevated start fails, a record cannot be
/// written or the application cannot be restarted, and what the number conversions and the look for
/// the cancel marker raise.
int RunBroker(const UpdaterArguments& arguments);

}  // namespace updater
