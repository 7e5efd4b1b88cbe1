#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "elevation/program_start.h"
#include "end_to_end/application.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/update_records.h"
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

/// The variables that tell the stand-in what to do. It inherits them from whoever starts it.
struct StandInVariables {
    StandInVariables(const std::wstring& consent, const std::wstring& eventBaseName);
    ~StandInVariables() = default;
    StandInVariables(const StandInVariables&) = delete;
    StandInVariables& operator=(const StandInVariables&) = delete;

    ScopedVariable realUpdater;
    ScopedVariable consentGiven;
    ScopedVariable consentEvent;
};

/// A record, and how long after the broker's start it was written.
struct TimedRecord : StatusRecord {
    double seconds = 0;
};

/// An update by real processes: the application, the broker, the worker and the setup program. Who
/// has one says, step by step, how far it goes; `UpdateScene` brings an installation along.
///
/// Each step returns when it has come about. It raises `std::runtime_error`, with all that is known
/// of the update, when the update has come to another end or the tests' patience is over. The
/// status file is opened only while nobody can write the next record (see update_records.h).
struct WholeUpdate {
    WholeUpdate();
    explicit WholeUpdate(UpdateJob whatIsAskedFor);

    /// Starts the job's application and the update that it asks for, up to the prompt for rights.
    void AskForUpdate();
    /// The same up to the record "ready". The update may come to an earlier end.
    void BeginUpdate();
    /// The same up to the application's exit. The rest needs nobody.
    void CarryOutUpdate();

    // The single steps.

    /// Starts the broker unelevated, in the application's stead.
    void StartBroker(const UpdaterArguments& options);
    /// Waits until the broker has asked for administrator rights.
    void AwaitPrompt();
    /// Answers the prompt and returns when the broker has written "ready" or has ended.
    void AnswerPrompt();
    /// The same without an earlier end, and the two records are noted.
    void AnswerPromptStepByStep();
    /// Waits for the worker's process.
    void AwaitWorker();
    /// Waits for the record with this state word.
    void AwaitRecord(const std::string& state);
    /// Waits for the broker's end and returns its exit code.
    std::uint32_t AwaitBroker();

    /// Reads the last record and puts it to the others in `records`, with the worker held up if it
    /// runs.
    void NoteRecord();

    /// Attends to the update until the condition holds.
    void Await(const std::string& awaited, const std::function<bool()>& condition);

    /// Does what is due: finds the processes, answers the prompt, closes the application.
    void Attend();

    /// Raises what is known of the update.
    [[noreturn]] void RaiseStory(const std::string& beginning) const;

    /// Looks at the last record and returns its state word: empty without one, "?" for one that is
    /// not among those of `RecordOf`.
    std::string State();
    bool HasState(const std::string& state) { return State() == state; }
    [[nodiscard]] std::uint32_t BrokerId() const { return GetProcessId(broker.get()); }
    [[nodiscard]] bool HasBrokerEnded() const;

    /// Opens the handshake's events, those that still exist.
    void OpenHandshake();

    UpdateJob job;
    Application application;
    /// The stand-in that runs the broker; ends with the broker's exit code.
    StartedProgram standIn;
    std::uint64_t startTime = 0;
    /// Null until they have been seen to run. The helper is what the broker takes for the worker.
    UniqueHandle broker;
    UniqueHandle helper;
    UniqueHandle worker;

    /// The stand-in's events, see elevation/consent.h. "begin" is set from the beginning.
    std::wstring eventBaseName;
    UniqueHandle asked;
    UniqueHandle answered;
    UniqueHandle started;
    UniqueHandle begin;

    /// The handshake's events, see `OpenHandshake`.
    UniqueHandle ready;
    UniqueHandle commit;

    // What `Attend` does.

    /// Look for the processes all the time, so that each is found as soon as it runs.
    bool watchesProcesses = false;
    bool grantsRights = false;
    /// Close the application as soon as the broker has written "ready".
    bool closesApplication = false;
    bool applicationToldToClose = false;
    /// Hold the broker up from the worker's first record on, so that this stays the last.
    bool holdsBroker = false;
    std::optional<ProcessPause> brokerPause;
    /// Open the handshake's events early. They live as long as somebody has them open.
    bool holdsHandshake = false;

    /// The records' state words in their order, as far as each stood long enough to be seen.
    std::vector<std::string> states;
    std::optional<RecordMark> seenMark;
    /// Those that were noted.
    std::vector<TimedRecord> records;
    std::function<void(const TimedRecord& record)> onRecord;
    /// The application follows the records itself, and is held up where it would be in the way.
    bool applicationFollows = false;

    void FindProcesses();
    void HoldBrokerUp();
    [[nodiscard]] bool HasHelperEnded() const;
};

}  // namespace updater
