#include "interruptions/driven_update.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <vector>

#include "elevation/consent.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
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

// Each is the one before's child: the stand-in, the broker, the process that the broker takes for
// the worker, and the worker.
void FindProcesses(DrivenUpdate& update) {
    if (update.worker) {
        return;
    }
    const std::vector<RunningProcess> running = ListRunningProcesses();
    const std::filesystem::path directory = update.job.updater.parent_path();
    if (!update.broker) {
        update.run.brokerId = FindChild(running, update.run.standIn.processId, directory);
        update.broker = OpenFound(update.run.brokerId);
    }
    if (!update.run.helper) {
        update.run.helper = OpenFound(FindChild(running, update.run.brokerId, directory));
    }
    // A broker that has ended may not be known as the helper's parent any more.
    const std::uint32_t helper = update.run.helper ? GetProcessId(update.run.helper.get()) : 0;
    update.worker = OpenFound(FindChild(running, helper, directory));
}

std::wstring HandshakeName(const DrivenUpdate& update) {
    const std::filesystem::path path = update.job.updater.native() + kHandshakeSuffix;
    std::ifstream file(path, std::ios::binary);
    std::string name;
    std::getline(file, name);
    return Utf8ToWide(name);
}

const std::map<std::string, std::string>& Records() {
    static const std::map<std::string, std::string> records = {
        {"", ""},
        {"authorized", RecordText("authorized", "Administrator authorization accepted", 0)},
        {"ready", RecordText("ready", "Authorized helper is waiting for application exit", 0)},
        {"installing", RecordText("installing", "Installing verified package", 0)},
        {"succeeded", RecordText("succeeded", "Installed version 2.0.0.0", 0)},
        {"failed",
         RecordText("failed", "Inno Setup did not complete; exit code=7; previous program restored",
                    1)},
    };
    return records;
}

std::size_t StatusFileSize(const DrivenUpdate& update) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    const std::filesystem::path file = update.job.jobDirectory / kStatusFile;
    const bool exists = GetFileAttributesExW(file.c_str(), GetFileExInfoStandard, &data) != 0;
    return exists ? data.nFileSizeLow : 0;
}

UniqueHandle OpenEventOf(const std::wstring& name) {
    return OwnHandle(OpenEventW(SYNCHRONIZE, FALSE, name.c_str()));
}

}  // namespace

DrivenUpdate StartDrivenUpdate(const UpdateJob& job, const std::string& outcome) {
    DrivenUpdate update;
    update.job = job;
    update.outcome = outcome;
    update.application = StartApplication(job.installDirectory);
    update.run = StartUpdate(job, UpdateOptions(job, update.application.id));
    update.run.records.reset();
    return update;
}

void Attend(DrivenUpdate& update) {
    FindProcesses(update);
    if (!update.promptAnswered && update.run.helper) {
        if (update.holdsBroker) {
            ResetEvent(update.run.begin.get());
        }
        SetEvent(update.run.answered.get());
        update.promptAnswered = true;
    }
    if (update.holdsBroker && !update.brokerPause &&
        IsSignalledWithin(update.run.started.get(), 0)) {
        update.brokerPause = std::make_unique<ProcessPause>(BeginWithBrokerHeldUp(update.run));
    }
    if (update.holdsHandshake && update.worker && !update.commit) {
        OpenHandshake(update);
    }
    if (!update.applicationToldToClose && HasRecord(update, "ready")) {
        AskToClose(update.application);
        update.applicationToldToClose = true;
    }
}

void DriveUntil(DrivenUpdate& update, const std::string& awaited,
                const std::function<bool()>& condition) {
    AwaitInUpdate(update.run, awaited, [&] {
        Attend(update);
        return condition();
    });
}

void OpenHandshake(DrivenUpdate& update) {
    const std::wstring baseName = HandshakeName(update);
    update.ready = OpenEventOf(ReadyEventName(baseName));
    update.commit = OpenEventOf(CommitEventName(baseName));
}

std::string RecordOf(const std::string& state) {
    return Records().at(state);
}

bool HasRecord(const DrivenUpdate& update, const std::string& state) {
    return StatusFileSize(update) == RecordOf(state).size();
}

std::optional<std::string> LastState(const DrivenUpdate& update) {
    const std::size_t size = StatusFileSize(update);
    const auto found =
        std::ranges::find(Records(), size, [](const auto& record) { return record.second.size(); });
    return found == Records().end() ? std::nullopt : std::optional(found->first);
}

}  // namespace updater
