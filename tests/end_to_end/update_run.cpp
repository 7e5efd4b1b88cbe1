#include "end_to_end/update_run.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "elevation/consent.h"
#include "end_to_end/build_outputs.h"
#include "end_to_end/waiting.h"
#include "fixtures/file_content.h"
#include "fixtures/named_event.h"
#include "support/file_digest.h"
#include "support/file_system.h"
#include "support/process_utilities.h"
#include "support/status_file.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr wchar_t kUpdaterName[] = L"corvellan-updater.exe";

std::uint32_t FindChildOf(const UpdateRun& run, std::uint32_t parentId) {
    return FindChild(ListRunningProcesses(), parentId, run.updater.parent_path());
}

std::string StateOf(const char* name, HANDLE process, std::uint32_t processId) {
    const std::string text = std::string("\n  ") + name + ", process " + std::to_string(processId);
    if (process == nullptr) {
        return text + ", is not known";
    }
    return text +
           (HasEnded(process) ? " ended with " + std::to_string(AwaitExitCode(process)) : " runs");
}

// What the stand-ins say that could not do their work.
std::string FailureOfStandIn(const UpdateRun& run) {
    const std::filesystem::path file = run.updater.native() + kFailureSuffix;
    return PathExists(file) ? "\n  the stand-in failed: " + ReadFileContent(file) : std::string();
}

[[noreturn]] void RaiseStory(const UpdateRun& run, const std::string& beginning) {
    std::string story = beginning;
    story += StateOf("the broker's stand-in", run.standIn.process.get(), run.standIn.processId);
    story += StateOf("the broker", OpenRunningProcess(run.brokerId).get(), run.brokerId);
    story +=
        StateOf("the helper", run.helper.get(), run.helper ? GetProcessId(run.helper.get()) : 0);
    story += IsSignalledWithin(run.asked.get(), 0) ? ", and has asked" : ", and has not asked";
    if (run.records) {
        for (const CollectedRecord& record : run.records->Records()) {
            story += "\n  " + record.text;
        }
    }
    throw std::runtime_error(story + FailureOfStandIn(run));
}

// The stand-in is the application's child, the broker the stand-in's, the process that it takes for
// the worker the broker's, and the worker that process's.
UniqueHandle OpenChild(const UpdateRun& run, std::uint32_t parentId) {
    UniqueHandle child = OpenRunningProcess(FindChildOf(run, parentId));
    if (!child) {
        RaiseStory(run, "A process of the update does not run");
    }
    return child;
}

bool HasBrokerEnded(const UpdateRun& run) {
    return HasEnded(run.standIn.process.get());
}

bool HasHelperEnded(const UpdateRun& run) {
    return run.helper && HasEnded(run.helper.get());
}

std::optional<CollectedRecord> FindRecord(const UpdateRun& run, const std::string& state) {
    const std::vector<CollectedRecord> records = run.records->Records();
    const auto found = std::ranges::find(records, state, &CollectedRecord::state);
    return found == records.end() ? std::nullopt : std::optional(*found);
}

}  // namespace

std::filesystem::path PlaceUpdater(const std::filesystem::path& directory) {
    CreateDirectories(directory);
    std::filesystem::path updater = directory / kUpdaterName;
    CopyOverFile(ElevationStandIn(), updater);
    return updater;
}

UpdaterArguments UpdateOptions(const UpdateJob& job, std::uint32_t parentProcessId) {
    return {{kInstallDirOption, job.installDirectory.native()},
            {kJobDirOption, job.jobDirectory.native()},
            {kInstallerOption, job.setup.native()},
            {kVersionOption, job.version},
            {kSizeOption, std::to_wstring(FileSize(job.setup))},
            {kSha256Option, Utf8ToWide(FileSha256Hex(job.setup))},
            {kParentPidOption, std::to_wstring(parentProcessId)}};
}

StandInVariables::StandInVariables(const std::wstring& consent, const std::wstring& eventBaseName)
    : realUpdater(kRealUpdaterVariable, RealUpdater().native()),
      consentGiven(kConsentVariable, consent),
      consentEvent(kConsentEventVariable, eventBaseName) {}

UpdateRun PrepareUpdate(const std::wstring& consent) {
    const std::wstring baseName = L"Local\\CorvellanConsent-" + CreateJobIdentity();
    UpdateRun run;
    run.variables = std::make_unique<StandInVariables>(consent, baseName);
    run.asked = CreateNamedEvent(AskedEventName(baseName));
    run.answered = CreateNamedEvent(AnsweredEventName(baseName));
    run.started = CreateNamedEvent(StartedEventName(baseName));
    run.begin = CreateNamedEvent(BeginEventName(baseName));
    SetEvent(run.begin.get());
    return run;
}

UpdateRun StartUpdate(const UpdateJob& job, const UpdaterArguments& options) {
    UpdateRun run = PrepareUpdate(job.consent);
    run.updater = job.updater;
    run.records = std::make_unique<RecordCollector>(job.jobDirectory);
    ProgramStart start;
    start.program = job.updater;
    start.arguments = CommandLineOf(kBrokerFlag, options);
    start.workingDirectory = job.jobDirectory;
    start.token = StartToken::Linked;
    run.standIn = StartProgram(start);
    return run;
}

void FollowUpdate(UpdateRun& run, std::uint32_t applicationId,
                  const std::filesystem::path& jobDirectory, RecordObserver observer) {
    run.records = std::make_unique<RecordCollector>(jobDirectory, std::move(observer));
    run.updater = jobDirectory / kUpdaterName;
    AwaitInUpdate(run, "the application to start the updater", [&] {
        run.standIn.processId = FindChildOf(run, applicationId);
        return run.standIn.processId != 0;
    });
    run.standIn.process = OpenChild(run, applicationId);
    run.applicationId = applicationId;
}

void AwaitPrompt(UpdateRun& run) {
    AwaitInUpdate(run, "the prompt for administrator rights",
                  [&] { return IsSignalledWithin(run.asked.get(), 0) || HasBrokerEnded(run); });
    if (!IsSignalledWithin(run.asked.get(), 0)) {
        RaiseStory(run, "The broker did not ask for administrator rights");
    }
    run.brokerId = GetProcessId(OpenChild(run, run.standIn.processId).get());
    run.helper = OpenChild(run, run.brokerId);
}

void AwaitInUpdate(const UpdateRun& run, const std::string& awaited,
                   const std::function<bool()>& condition) {
    try {
        AwaitCondition(awaited, condition);
    } catch (const std::runtime_error& timeOut) {
        RaiseStory(run, timeOut.what());
    }
}

void AnswerPrompt(UpdateRun& run) {
    // An application that opened a record's file would be in the way of the next.
    const ProcessPause application(run.applicationId);
    SetEvent(run.answered.get());
    AwaitInUpdate(run, "the record \"ready\" or the broker's end",
                  [&] { return HasBrokerEnded(run) || FindRecord(run, kStateReady); });
}

void AnswerPromptStepByStep(UpdateRun& run) {
    const ProcessPause application(run.applicationId);
    ResetEvent(run.begin.get());
    SetEvent(run.answered.get());
    AwaitInUpdate(run, "the worker",
                  [&] { return HasHelperEnded(run) || IsSignalledWithin(run.started.get(), 0); });
    if (HasBrokerEnded(run)) {
        RaiseStory(run, "The broker has ended early");
    }
    {
        const ProcessPause broker = BeginWithBrokerHeldUp(run);
        run.records->readsFirstRecord = true;
        AwaitRecord(run, kStateAuthorized);
    }
    AwaitRecord(run, kStateReady);
}

ProcessPause BeginWithBrokerHeldUp(const UpdateRun& run) {
    // The broker has started the helper long ago, and gets time to begin its wait: held up before,
    // it may keep something that the worker needs, such as the display while it connects to that.
    // The worker has not begun yet, so the broker cannot be beyond the wait.
    constexpr DWORD kTimeToBeginToWait = 500;
    Sleep(kTimeToBeginToWait);
    ProcessPause broker(run.brokerId);
    SetEvent(run.begin.get());
    return broker;
}

CollectedRecord AwaitRecord(UpdateRun& run, const std::string& state) {
    std::optional<CollectedRecord> awaited;
    AwaitInUpdate(run, "the record \"" + state + '"', [&] {
        const bool brokerEnded = HasBrokerEnded(run);
        run.records->readsFirstRecord = run.records->readsFirstRecord || brokerEnded;
        const bool ended = brokerEnded || HasHelperEnded(run);
        const bool complete = run.records->HasLastRecord();
        awaited = FindRecord(run, state);
        return awaited || (ended && complete);
    });
    if (!awaited) {
        RaiseStory(run, "The update ended without the record \"" + state + '"');
    }
    return *awaited;
}

std::uint32_t AwaitBroker(const UpdateRun& run) {
    AwaitInUpdate(run, "the broker's end", [&] { return HasBrokerEnded(run); });
    if (run.records) {
        // Nobody but a worker that outlives its broker writes any more.
        run.records->readsFirstRecord = true;
        AwaitInUpdate(run, "the last record to be collected",
                      [&] { return run.records->HasLastRecord(); });
    }
    return AwaitExitCode(run.standIn.process.get());
}

UniqueHandle OpenWorker(const UpdateRun& run) {
    return OpenChild(run, GetProcessId(run.helper.get()));
}

}  // namespace updater
