#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "elevation/program_start.h"
#include "end_to_end/record_collector.h"
#include "end_to_end/running_processes.h"
#include "fixtures/scoped_variable.h"
#include "fixtures/updater_command_line.h"
#include "support/handle.h"
#include "support/updater_arguments.h"

namespace updater {

/// What the application asks the updater for.
struct UpdateJob {
    /// The stand-in under the updater's name, see `PlaceUpdater`.
    std::filesystem::path updater;
    std::filesystem::path installDirectory;
    std::filesystem::path jobDirectory;
    std::filesystem::path setup;
    std::wstring version;
    /// What the prompt for administrator rights gives, a value of elevation/consent.h.
    std::wstring consent;
};

/// Puts the elevation stand-in into a directory under the updater's name and returns its path.
std::filesystem::path PlaceUpdater(const std::filesystem::path& directory);

/// Returns the options that the application gives for a job, the setup program's size and digest
/// included.
UpdaterArguments UpdateOptions(const UpdateJob& job, std::uint32_t parentProcessId);

/// The variables that tell the stand-in what to do.
struct StandInVariables {
    StandInVariables(const std::wstring& consent, const std::wstring& eventBaseName);

    ScopedVariable realUpdater;
    ScopedVariable consentGiven;
    ScopedVariable consentEvent;
};

/// An update under way.
struct UpdateRun {
    /// As long as the update can start programs.
    std::unique_ptr<StandInVariables> variables;
    /// The stand-in that runs the broker; ends with the broker's exit code.
    StartedProgram standIn;
    /// The stand-in's path.
    std::filesystem::path updater;
    std::uint32_t brokerId = 0;
    /// The application, if it follows the status records itself.
    std::uint32_t applicationId = 0;
    /// What the broker takes for the worker.
    UniqueHandle helper;
    UniqueHandle asked;
    UniqueHandle answered;
    UniqueHandle started;
    /// Set from the beginning, unless somebody wants to hold the worker back.
    UniqueHandle begin;
    /// None when nothing is to be collected.
    std::unique_ptr<RecordCollector> records;
};

/// Sets the variables that the stand-in needs, also for an updater that an application starts
/// later. `consent` is what the prompt gives, see `UpdateJob`.
UpdateRun PrepareUpdate(const std::wstring& consent);

/// Begins to follow the update that the application has been told to start after `PrepareUpdate`,
/// with the updater's copy in the job directory.
void FollowUpdate(UpdateRun& run, std::uint32_t applicationId,
                  const std::filesystem::path& jobDirectory, RecordObserver observer);

/// Starts the broker unelevated, in the application's stead, and begins to follow the update.
UpdateRun StartUpdate(const UpdateJob& job, const UpdaterArguments& options);

/// Waits until the broker has asked for administrator rights. Raises as the waits below.
void AwaitPrompt(UpdateRun& run);

// The waits below raise `std::runtime_error` with all that is known of the update when the time is
// over, or when it has come to another end.

/// Polls until the condition holds.
void AwaitInUpdate(const UpdateRun& run, const std::string& awaited,
                   const std::function<bool()>& condition);

/// Answers the prompt and returns when the broker has written "ready" or has ended.
void AnswerPrompt(UpdateRun& run);

/// The same, and the worker's first record is collected as well: the broker is held up meanwhile.
void AnswerPromptStepByStep(UpdateRun& run);

/// Holds the broker up at its wait for the worker, and then lets the worker begin. The worker must
/// have been started with `begin` reset.
ProcessPause BeginWithBrokerHeldUp(const UpdateRun& run);

/// Waits for a record with this state word and returns it. The worker's first is collected only
/// while the broker is held up.
CollectedRecord AwaitRecord(UpdateRun& run, const std::string& state);

/// Waits for the broker's end and returns its exit code. The last record has then been collected.
std::uint32_t AwaitBroker(const UpdateRun& run);

/// Returns the worker's process. Raises `std::runtime_error` when none runs.
UniqueHandle OpenWorker(const UpdateRun& run);

}  // namespace updater
