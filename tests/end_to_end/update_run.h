#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "elevation/program_start.h"
#include "end_to_end/record_collector.h"
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

/// Returns the updater's command line, after the program, for a mode flag and options.
std::wstring CommandLineOf(const wchar_t* modeFlag, const UpdaterArguments& options);

/// An update under way.
struct UpdateRun {
    /// The stand-in that runs the broker; ends with the broker's exit code.
    StartedProgram standIn;
    std::uint32_t brokerId = 0;
    /// The application, if it follows the status records itself.
    std::uint32_t applicationId = 0;
    /// What the broker takes for the worker.
    UniqueHandle helper;
    UniqueHandle asked;
    UniqueHandle answered;
    /// None when nothing is to be collected.
    std::unique_ptr<RecordCollector> records;
};

/// Sets the environment that the stand-in needs, also for an updater that an application starts
/// later. `consent` is what the prompt gives, see `UpdateJob`.
UpdateRun PrepareUpdate(const std::wstring& consent);

/// Begins to follow the update that the application has been told to start after `PrepareUpdate`.
void FollowUpdate(UpdateRun& run, std::uint32_t applicationId,
                  const std::filesystem::path& jobDirectory, RecordObserver observer);

/// Starts the broker unelevated, in the application's stead, and begins to follow the update.
UpdateRun StartUpdate(const UpdateJob& job, const UpdaterArguments& options);

/// Waits until the broker has asked for administrator rights.
void AwaitPrompt(UpdateRun& run);

/// Answers the prompt and returns when the worker has written its first record and the broker has
/// answered that with its own, or the broker has ended. Both records can be relied on to be
/// collected: the broker is held up until the worker's has been read.
void AnswerPrompt(UpdateRun& run);

/// Waits for a record with this state word and returns it. Raises `std::runtime_error` when the
/// broker ends without one.
StatusRecord AwaitRecord(UpdateRun& run, const std::string& state);

/// Waits for the broker's end and returns its exit code. The last record has then been collected.
std::uint32_t AwaitBroker(const UpdateRun& run);

/// Returns the worker's process. Raises `std::runtime_error` when none runs.
UniqueHandle OpenWorker(const UpdateRun& run);

}  // namespace updater
