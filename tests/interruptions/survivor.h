#pragma once

#include "end_to_end/update_scene.h"
#include "interruptions/driven_update.h"
#include "interruptions/kill.h"

namespace updater {

/// Expects of what runs on after the victim's end that it ends as it should and within its limits,
/// and closes an application that it has started. A worker that rightly waits for the commit of
/// a broker that is gone is ended: the three minutes that it waits pass in slow_survivor_test.cpp
/// only.
void ExpectSurvivorEnds(const UpdateScene& scene, DrivenUpdate& update, const Kill& kill);

}  // namespace updater
