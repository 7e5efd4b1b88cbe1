#include "interruptions/kill.h"

#include "end_to_end/running_processes.h"
#include "end_to_end/waiting.h"
#include "support/windows_api.h"

namespace updater {

namespace {

const UniqueHandle& ProcessOf(const UpdateScene& update, Victim victim) {
    return victim == Victim::Broker ? update.broker : update.worker;
}

void EndEverything(const UpdateScene& update) {
    EndProcessesBelow(update.workspace.path);
    for (const std::filesystem::path& staging : update.NewStagingDirectories()) {
        EndProcessesBelow(staging);
    }
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, Victim victim) {
    constexpr const char* kNames[] = {"Broker", "Worker", "Everything"};
    return stream << kNames[static_cast<int>(victim)];
}

bool IsRunning(const UpdateScene& update, Victim victim) {
    return ProcessOf(update, victim) != nullptr;
}

std::optional<Kill> KillVictim(UpdateScene& update, Victim victim) {
    if (victim == Victim::Everything) {
        // The broker would start the application again.
        TerminateProcess(update.broker.get(), kKillCode);
    }
    const UniqueHandle& process = ProcessOf(update, victim);
    const std::string stateBefore = update.State();
    TerminateProcess(process.get(), kKillCode);
    // A record of the survivor may be the last already when the file is looked at again.
    const std::string stateAfter = update.State();
    const std::string state = stateAfter == "?" ? stateBefore : stateAfter;
    const bool inTime = AwaitEnd(process.get(), "the end of a killed process") == kKillCode;
    if (victim == Victim::Everything) {
        EndEverything(update);
    }
    return inTime ? std::optional(Kill{victim, state}) : std::nullopt;
}

}  // namespace updater
