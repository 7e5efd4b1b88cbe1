#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "end_to_end/application.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/update_run.h"
#include "support/handle.h"

namespace updater {

/// A real update that needs nobody: the prompt is answered, and the application closes as soon as
/// the broker has written "ready". Its processes can be looked at, and ended, at any moment.
///
/// The status file is not opened while broker and worker run: an open file is in the way of the
/// rename that brings the next record. A record is told from the others by its size.
struct DrivenUpdate {
    UpdateJob job;
    Application application;
    UpdateRun run;
    /// Null until they run.
    UniqueHandle broker;
    UniqueHandle worker;
    /// The handshake's events, see `OpenHandshake`.
    UniqueHandle ready;
    UniqueHandle commit;
    /// Open the events early. They live as long as somebody has them open.
    bool holdsHandshake = false;
    /// Hold the broker up from the worker's start on, so that the worker's first record stays the
    /// last.
    bool holdsBroker = false;
    std::unique_ptr<ProcessPause> brokerPause;
    bool promptAnswered = false;
    bool applicationToldToClose = false;
    /// The state word that the update comes to if nobody disturbs it.
    std::string outcome = "succeeded";
};

/// Starts the application and the update that it asks for.
DrivenUpdate StartDrivenUpdate(const UpdateJob& job, const std::string& outcome = "succeeded");

/// Does what is due: finds the processes, answers the prompt and closes the application.
void Attend(DrivenUpdate& update);

/// Attends to the update until the condition holds. Raises `std::runtime_error`, naming what was
/// waited for, when the time is over.
void DriveUntil(DrivenUpdate& update, const std::string& awaited,
                const std::function<bool()>& condition);

/// Opens the handshake's events, those that still exist.
void OpenHandshake(DrivenUpdate& update);

/// Returns the record with this state word as it stands in the file: of an update to version 2, for
/// "failed" of one whose setup program ends half-way. No state word stands for no record.
std::string RecordOf(const std::string& state);

/// Whether the last record is, by its size, the one with this state word.
bool HasRecord(const DrivenUpdate& update, const std::string& state);

/// Returns the last record's state word by the record's size; nothing for any other record.
std::optional<std::string> LastState(const DrivenUpdate& update);

}  // namespace updater
