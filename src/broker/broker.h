#pragma once

#include "support/updater_arguments.h"

namespace updater {

/// Carries out the unelevated side of an update: checks that the application of the installation
/// directory asked for it, starts the worker elevated, gives it the go-ahead once the application
/// has exited, and afterwards restarts the application and shows an error box if the worker failed.
/// Returns the process exit code: the worker's own once it was given the go-ahead, else 1 for
/// failed or 2 for cancelled. Waits up to three minutes for the worker, up to three minutes for the
/// application, and without a limit for the installation. Raises `std::runtime_error` when a check
/// or a step before the elevated start fails, or the application cannot be restarted.
int RunBroker(const UpdaterArguments& arguments);

}  // namespace updater
