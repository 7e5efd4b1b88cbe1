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
#include "support/status_file.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

// Returns 0 when it does not run. The parent alone would not do: its id may be that of an earlier
// process, whose children run on.
std::uint32_t FindChild(const std::vector<RunningProcess>& running, std::uint32_t parentId,
                        const std::filesystem::path& directory) {
    const auto child = std::ranges::find_if(running, [&](const RunningProcess& process) {
        return process.parentId == parentId && process.image.parent_path() == directory;
    });
    return parentId == 0 || child == running.end() ? 0 : child->id;
}

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
    const std::uint32_t helper = FindChild(running, update.run.brokerId, directory);
    if (!update.run.helper) {
        update.run.helper = OpenFound(helper);
    }
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

void GiveConsent(DrivenUpdate& update) {
    if (update.holdsBroker) {
        update.brokerPause = std::make_unique<ProcessPause>(update.run.brokerId);
    }
    SetEvent(update.run.answered.get());
    update.promptAnswered = true;
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
        GiveConsent(update);
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
    AwaitCondition(awaited, [&] {
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
