#pragma once

#include <string>

#include "support/updater_arguments.h"

namespace updater {

/// Returns the command line, after the program, of the worker that the broker starts: worker mode,
/// the handshake events' base name, and every option of the broker's own but its mode flag, in the
/// map's order, each value quoted.
std::wstring BuildWorkerParameters(const UpdaterArguments& arguments,
                                   const std::wstring& eventBaseName);

}  // namespace updater
