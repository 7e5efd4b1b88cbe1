#pragma once

#include "end_to_end/update_scene.h"
#include "interruptions/kill.h"

namespace updater {

/// Expects the status file to hold one of the records that an update writes, whole. It may be
/// missing only if there was no record before the kill.
void ExpectWholeStatusFile(const UpdateScene& update, const Kill& kill);

/// Waits until every setup program of the ended worker has ended, but for one that never begins
/// because the worker could not let it run any more (see `IsHeldUp`): that one stays.
void AwaitOrphanedSetup(const UpdateScene& update);

/// Whether the ended worker has left a setup program that never begins.
bool HasUnbegunSetup(const UpdateScene& update);

/// Expects that the setup program had not begun and the program is as it was, or that it can be put
/// back from the staging directory with the commands of docs/recovery.md.
void ExpectRecovery(const UpdateScene& update);

/// Expects an update of what is installed now, with a job directory of its own, to succeed.
void ExpectNextUpdateSucceeds(UpdateScene& update);

}  // namespace updater
