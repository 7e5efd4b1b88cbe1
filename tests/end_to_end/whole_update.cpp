#include "end_to_end/whole_update.h"

#include <chrono>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "elevation/consent.h"
#include "end_to_end/build_outputs.h"
#include "end_to_end/waiting.h"
#include "fixtures/file_content.h"
#include "fixtures/named_event.h"
#include "support/file_digest.h"
#include "support/file_system.h"
#include "support/handshake.h"
#include "support/process_utilities.h"
#include "support/status_file.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

UniqueHandle OpenFound(std::uint32_t processId) {
    return processId == 0 ? nullptr : OpenRunningProcess(processId);
}

UniqueHandle OpenEventOf(const std::wstring& name) {
    return OwnHandle(OpenEventW(SYNCHRONIZE, FALSE, name.c_str()));
}

std::wstring HandshakeName(const UpdateJob& job) {
    const std::filesystem::path path = job.updater.native() + kHandshakeSuffix;
    std::ifstream file(path, std::ios::binary);
    std::string name;
    std::getline(file, name);
    return Utf8ToWide(name);
}

std::string StateOf(const char* name, HANDLE process) {
    const std::string text = std::string("\n  ") + name;
    if (process == nullptr) {
        return text + " is not known";
    }
    return text + ", process " + std::to_string(GetProcessId(process)) +
           (HasEnded(process) ? " ended with " + std::to_string(AwaitExitCode(process)) : ", runs");
}

// What the stand-ins say that could not do their work.
std::string FailureOfStandIn(const UpdateJob& job) {
    const std::filesystem::path file = job.updater.native() + kFailureSuffix;
    return PathExists(file) ? "\n  the stand-in failed: " + ReadFileContent(file) : std::string();
}

}  // namespace

std::filesystem::path PlaceUpdater(const std::filesystem::path& directory) {
    CreateDirectories(directory);
    std::filesystem::path updater = directory / UpdaterName();
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

WholeUpdate::WholeUpdate() : WholeUpdate(UpdateJob{}) {}

WholeUpdate::WholeUpdate(UpdateJob whatIsAskedFor)
    : job(std::move(whatIsAskedFor)),
      eventBaseName(L"Local\\UpdaterTestConsent-" + CreateJobIdentity()),
      asked(CreateNamedEvent(AskedEventName(eventBaseName))),
      answered(CreateNamedEvent(AnsweredEventName(eventBaseName))),
      started(CreateNamedEvent(StartedEventName(eventBaseName))),
      begin(CreateNamedEvent(BeginEventName(eventBaseName))) {
    SetEvent(begin.get());
}

void WholeUpdate::AskForUpdate() {
    application = StartApplication(job.installDirectory);
    StartBroker(UpdateOptions(job, application.id));
    AwaitPrompt();
}

void WholeUpdate::BeginUpdate() {
    AskForUpdate();
    AnswerPrompt();
}

void WholeUpdate::CarryOutUpdate() {
    BeginUpdate();
    CloseApplication(application);
}

void WholeUpdate::StartBroker(const UpdaterArguments& options) {
    const StandInVariables variables(job.consent, eventBaseName);
    ProgramStart start;
    start.program = job.updater;
    start.arguments = CommandLineOf(kBrokerFlag, options);
    start.workingDirectory = job.jobDirectory;
    start.token = StartToken::Limited;
    startTime = SystemTime();
    standIn = StartProgram(start);
}

void WholeUpdate::AwaitPrompt() {
    Await("the prompt for administrator rights",
          [&] { return IsSignalledWithin(asked.get(), 0) || HasBrokerEnded(); });
    if (!IsSignalledWithin(asked.get(), 0)) {
        RaiseStory("The broker did not ask for administrator rights");
    }
    Await("the helper", [&] {
        FindProcesses();
        return helper != nullptr;
    });
}

void WholeUpdate::AnswerPrompt() {
    const ProcessPause pause(applicationFollows ? application.id : 0);
    grantsRights = true;
    Await("the record \"ready\" or the broker's end",
          [&] { return HasBrokerEnded() || HasState(kStateReady); });
}

void WholeUpdate::AnswerPromptStepByStep() {
    const ProcessPause pause(applicationFollows ? application.id : 0);
    grantsRights = true;
    holdsBroker = true;
    AwaitRecord(kStateAuthorized);
    NoteRecord();
    holdsBroker = false;
    brokerPause.reset();
    AwaitRecord(kStateReady);
    NoteRecord();
}

void WholeUpdate::AwaitWorker() {
    Await("the worker", [&] {
        FindProcesses();
        return worker || HasHelperEnded();
    });
    if (!worker) {
        RaiseStory("There is no worker");
    }
}

void WholeUpdate::AwaitRecord(const std::string& state) {
    Await("the record \"" + state + '"', [&] {
        const bool ended = HasBrokerEnded() || HasHelperEnded();
        if (ended && !HasState(state)) {
            RaiseStory("The update ended without the record \"" + state + '"');
        }
        return HasState(state);
    });
}

std::uint32_t WholeUpdate::AwaitBroker() {
    Await("the broker's end", [&] { return HasBrokerEnded(); });
    return AwaitExitCode(standIn.process.get());
}

void WholeUpdate::NoteRecord() {
    State();
    const ProcessPause pause = HoldUpIfRunning(worker.get());
    constexpr double kTicksInASecond = 1e7;
    const RecordMark mark = MarkOfLastRecord(job.jobDirectory).value_or(RecordMark{startTime, 0});
    TimedRecord record{
        ParseStatusRecord(LastRecordText(job.jobDirectory)),
        (static_cast<double>(mark.written) - static_cast<double>(startTime)) / kTicksInASecond};
    if (onRecord) {
        onRecord(record);
    }
    records.push_back(std::move(record));
}

void WholeUpdate::Await(const std::string& awaited, const std::function<bool()>& condition) {
    std::string timeOut;
    try {
        return AwaitCondition(awaited, [&] {
            Attend();
            return condition();
        });
    } catch (const TimeOut& failure) {
        timeOut = failure.what();
    }
    RaiseStory(timeOut);
}

void WholeUpdate::Attend() {
    if (watchesProcesses || holdsBroker) {
        FindProcesses();
    }
    State();
    if (grantsRights && IsSignalledWithin(asked.get(), 0) &&
        !IsSignalledWithin(answered.get(), 0)) {
        if (holdsBroker) {
            ResetEvent(begin.get());
        }
        SetEvent(answered.get());
    }
    if (holdsBroker && !brokerPause && worker && IsSignalledWithin(started.get(), 0)) {
        HoldBrokerUp();
    }
    if (holdsHandshake && worker && !commit) {
        OpenHandshake();
    }
    if (closesApplication && !applicationToldToClose && HasState(kStateReady)) {
        AskToClose(application);
        applicationToldToClose = true;
    }
}

void WholeUpdate::RaiseStory(const std::string& beginning) const {
    std::string story = beginning;
    story += StateOf("the broker's stand-in", standIn.process.get());
    story += StateOf("the broker", broker.get());
    story += StateOf("the helper", helper.get());
    story += IsSignalledWithin(asked.get(), 0) ? ", and has asked" : ", and has not asked";
    story += StateOf("the worker", worker.get());
    for (const std::string& state : states) {
        story += "\n  record " + state;
    }
    throw std::runtime_error(story + "\n  now " + LastRecordText(job.jobDirectory) +
                             FailureOfStandIn(job));
}

std::string WholeUpdate::State() {
    const std::optional<RecordMark> mark = MarkOfLastRecord(job.jobDirectory);
    if (mark && mark != seenMark) {
        FindProcesses();
        const ProcessPause pauseOfBroker = HoldUpIfRunning(broker.get());
        const ProcessPause pauseOfWorker = HoldUpIfRunning(worker.get());
        // Another record may have come before they stood still.
        seenMark = MarkOfLastRecord(job.jobDirectory);
        states.push_back(StateOfRecord(LastRecordText(job.jobDirectory)));
    }
    return states.empty() ? "" : states.back();
}

bool WholeUpdate::HasBrokerEnded() const {
    return HasEnded(standIn.process.get());
}

bool WholeUpdate::HasHelperEnded() const {
    return helper && HasEnded(helper.get());
}

void WholeUpdate::OpenHandshake() {
    const std::wstring baseName = HandshakeName(job);
    ready = OpenEventOf(ReadyEventName(baseName));
    commit = OpenEventOf(CommitEventName(baseName));
}

// Each is the one before's child: the stand-in, the broker, the process that the broker takes for
// the worker, and the worker.
void WholeUpdate::FindProcesses() {
    if (worker) {
        return;
    }
    const std::vector<RunningProcess> running = ListRunningProcesses();
    const std::filesystem::path directory = job.updater.parent_path();
    // A process that has ended may not be known as its child's parent any more.
    const auto idOf = [](const UniqueHandle& process) {
        return process ? GetProcessId(process.get()) : 0;
    };
    if (!broker) {
        broker = OpenFound(FindChild(running, standIn.processId, directory));
    }
    if (!helper) {
        helper = OpenFound(FindChild(running, idOf(broker), directory));
    }
    worker = OpenFound(FindChild(running, idOf(helper), directory));
}

// The broker has started the helper and is about to wait for it, or waits already. Held up before
// its wait, it may keep something that the worker needs, such as the display while it connects to
// that. So it is let run a little again and again, until the worker has written its first record;
// the worker stands still meanwhile, and the broker does not see that record.
void WholeUpdate::HoldBrokerUp() {
    brokerPause.emplace(BrokerId());
    SetEvent(begin.get());
    AwaitCondition("the worker's first record", [&] {
        const ProcessPause pause(GetProcessId(worker.get()));
        if (MarkOfLastRecord(job.jobDirectory)) {
            return true;
        }
        LetRunFor(std::chrono::milliseconds(1), *brokerPause);
        return false;
    });
}

}  // namespace updater
