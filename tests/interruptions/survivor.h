#pragma once

#include <string>

#include "end_to_end/update_scene.h"
#include "interruptions/kill.h"

namespace updater {

/// Expects of what runs on after the victim's end that it ends as it should and within its limits,
/// and closes an application that it has started. `outcome` is the state word that the update comes
/// to if nobody disturbs it. A worker that rightly waits for the commit of
/// a broker that is gone is ended: the three minutes that it waits pass in slow_survivor_test.cpp
/// only.
void ExpectSurvivorEnds(UpdateScene& update, const std::string& outcome, const Kill& kill);

}  // namespace updater
