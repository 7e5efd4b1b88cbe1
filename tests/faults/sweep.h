#pragma once

#include <functional>
#include <string>
#include <vector>

#include "faults/effects.h"
#include "faults/outcome.h"

namespace updater::faults {

/// Carries an action out and watches the calls that it makes.
using Watcher = std::function<void(const std::function<void()>& action)>;

/// One way through the updater, for the sweep of its calls.
struct SweptMode {
    std::string name;
    /// Lays the scene as it is before each run, lets the watcher run the updater in it, and returns
    /// what that leaves.
    std::function<Outcome(const Watcher& watch)> run;
    /// What a run leaves that does nothing.
    Outcome before;
    /// What a run without a fault leaves.
    Outcome undisturbed;
    /// What a run leaves in which the fault raises a failure with this message.
    std::function<Outcome(const Fault& fault, const std::string& message)> raised;
    /// The last record that the mode itself writes.
    std::string statusBeforeHandler;
    /// Before the general ones.
    std::vector<Rule> rules;
};

/// Runs the mode once without a fault, and then once for each fault of each call of that run.
/// Expects what the rules say of each, and prints how many calls that were.
void SweepCalls(const SweptMode& mode);

}  // namespace updater::faults
