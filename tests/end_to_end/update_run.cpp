#include "end_to_end/update_run.h"

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "elevation/consent.h"
#include "end_to_end/build_outputs.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/waiting.h"
#include "support/argument_quoting.h"
#include "support/file_digest.h"
#include "support/file_system.h"
#include "support/process_utilities.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

void SetVariable(const wchar_t* name, const std::wstring& value) {
    if (SetEnvironmentVariableW(name, value.empty() ? nullptr : value.c_str()) == 0 &&
        !value.empty()) {
        RaiseLastError("Cannot set an environment variable");
    }
}

UniqueHandle MakeEvent(const std::wstring& name) {
    UniqueHandle event = OwnHandle(CreateEventW(nullptr, TRUE, FALSE, name.c_str()));
    if (!event) {
        RaiseLastError("Cannot create an event");
    }
    return event;
}

// Returns 0 when no child runs.
std::uint32_t FindChild(std::uint32_t parentId) {
    const std::vector<RunningProcess> running = ListRunningProcesses();
    const auto child = std::ranges::find(running, parentId, &RunningProcess::parentId);
    return child == running.end() ? 0 : child->id;
}

// The stand-in is the application's only child, the broker the stand-in's, the process that it
// takes for the worker the broker's, and the worker that process's.
std::uint32_t ChildOf(std::uint32_t parentId) {
    const std::uint32_t child = FindChild(parentId);
    if (child == 0) {
        throw std::runtime_error("A process of the update does not run");
    }
    return child;
}

[[noreturn]] void RaiseBrokerEnded(const UpdateRun& run) {
    std::string story = "The broker ended with " +
                        std::to_string(AwaitExitCode(run.standIn.process.get())) + " after";
    for (const StatusRecord& record : run.records->Records()) {
        story += ' ' + record.text;
    }
    throw std::runtime_error(story);
}

bool HasLastRecord(RecordCollector& collector) {
    const std::optional<StatusRecord> last = ReadStatusRecord(collector.jobDirectory);
    const std::vector<StatusRecord> records = collector.Records();
    return !last || (!records.empty() && records.back().text == last->text);
}

}  // namespace

std::filesystem::path PlaceUpdater(const std::filesystem::path& directory) {
    CreateDirectories(directory);
    std::filesystem::path updater = directory / L"corvellan-updater.exe";
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

std::wstring CommandLineOf(const wchar_t* modeFlag, const UpdaterArguments& options) {
    std::wstring commandLine = modeFlag;
    for (const auto& [option, value] : options) {
        commandLine += L' ' + option + L' ' + QuoteArgument(value);
    }
    return commandLine;
}

UpdateRun PrepareUpdate(const std::wstring& consent) {
    const std::wstring baseName = L"Local\\CorvellanConsent-" + CreateJobIdentity();
    SetVariable(kRealUpdaterVariable, RealUpdater().native());
    SetVariable(kConsentVariable, consent);
    SetVariable(kConsentEventVariable, baseName);
    UpdateRun run;
    run.asked = MakeEvent(AskedEventName(baseName));
    run.answered = MakeEvent(AnsweredEventName(baseName));
    return run;
}

UpdateRun StartUpdate(const UpdateJob& job, const UpdaterArguments& options) {
    UpdateRun run = PrepareUpdate(job.consent);
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
    AwaitCondition("the application to start the updater", [&] {
        run.standIn.processId = FindChild(applicationId);
        return run.standIn.processId != 0;
    });
    run.standIn.process = OpenRunningProcess(run.standIn.processId);
    run.applicationId = applicationId;
}

void AwaitPrompt(UpdateRun& run) {
    const std::array<HANDLE, 2> handles = {run.asked.get(), run.standIn.process.get()};
    const auto patience = std::chrono::milliseconds(kPatience).count();
    switch (WaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), FALSE,
                                   static_cast<DWORD>(patience))) {
        case WAIT_OBJECT_0:
            break;
        case WAIT_OBJECT_0 + 1:
            RaiseBrokerEnded(run);
        default:
            throw std::runtime_error("The broker did not ask for administrator rights");
    }
    run.brokerId = ChildOf(run.standIn.processId);
    run.helper = OpenRunningProcess(ChildOf(run.brokerId));
    // It has just started the helper, and is about to be held up.
    AwaitRest(run.brokerId);
}

void AnswerPrompt(UpdateRun& run) {
    // An application that opened a record's file would be in the way of the next.
    const ProcessPause application(run.applicationId);
    {
        const ProcessPause broker(run.brokerId);
        SetEvent(run.answered.get());
        AwaitCondition("the worker's first record", [&] {
            return HasEnded(run.helper.get()) || !run.records->Records().empty();
        });
    }
    AwaitCondition("the broker's record", [&] {
        return HasEnded(run.standIn.process.get()) || run.records->Records().size() > 1;
    });
}

StatusRecord AwaitRecord(UpdateRun& run, const std::string& state) {
    StatusRecord awaited;
    AwaitCondition("the status record \"" + state + "\"", [&] {
        const bool ended = HasEnded(run.standIn.process.get());
        const std::vector<StatusRecord> records = run.records->Records();
        const auto found = std::ranges::find(records, state, &StatusRecord::state);
        if (found != records.end()) {
            awaited = *found;
            return true;
        }
        if (ended) {
            RaiseBrokerEnded(run);
        }
        return false;
    });
    return awaited;
}

std::uint32_t AwaitBroker(const UpdateRun& run) {
    const std::uint32_t exitCode = AwaitEnd(run.standIn.process.get(), "the broker's end");
    if (run.records) {
        AwaitCondition("the last record to be collected",
                       [&] { return HasLastRecord(*run.records); });
    }
    return exitCode;
}

UniqueHandle OpenWorker(const UpdateRun& run) {
    return OpenRunningProcess(ChildOf(GetProcessId(run.helper.get())));
}

}  // namespace updater
