#pragma once

#include <optional>

#include "faults/sweep.h"
#include "fixtures/directory_link.h"
#include "fixtures/scenes/update_places.h"

namespace updater::faults {

// The sides of a broker's outcome.
/// Whether the broker has told the worker to go on, "yes" or "no".
inline constexpr char kCommitted[] = "commit";
/// Whether the application was started again, "yes" or "no".
inline constexpr char kRestarted[] = "application restarted";
/// "none", or what the error box says.
inline constexpr char kErrorBox[] = "error box";

/// The message of the record that the worker writes at its end.
inline constexpr char kWorkerMessage[] = "the worker's own words";

/// What the broker meets.
struct BrokerCase {
    bool promptIsGranted = true;
    bool workerBecomesReady = true;
    bool applicationExits = true;
};

/// An application that wants to be updated, and a worker that reports "authorized" as soon as it is
/// started, and fails with exit code 3 when the broker tells it to go on. Both are simulated, and
/// so is the shell; files and all other objects are real.
struct SweptBroker : UpdatePlaces {
    /// Runs the broker in a job directory without a record.
    Outcome Run(const BrokerCase& met, const Watcher& watch) const;

    /// Has the application cancel the update, by an entry that is a link. Making it anew for each
    /// run would be slow.
    void Cancel();

    std::optional<DirectoryLink> cancelMarker;
};

}  // namespace updater::faults
