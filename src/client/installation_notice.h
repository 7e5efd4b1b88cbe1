#pragma once

namespace updater {

/// Whether an update of the application is being installed on the machine, or somebody makes
/// believe that one is.
bool IsBeingInstalled();

}  // namespace updater
