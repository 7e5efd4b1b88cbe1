#pragma once

#include "support/updater_arguments.h"

namespace updater {

/// Reads the process command line, split by the shell's own rules, into the option map. Empty when
/// there is nothing after the program name, or when the system cannot split it.
UpdaterArguments ParseUpdaterArguments();

}  // namespace updater
