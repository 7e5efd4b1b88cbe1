#include "interruptions/kill.h"

#include "end_to_end/running_processes.h"
#include "end_to_end/waiting.h"
#include "support/windows_api.h"

namespace updater {

namespace {

const UniqueHandle& ProcessOf(const DrivenUpdate& update, Victim victim) {
    return victim == Victim::Broker ? update.broker : update.worker;
}

void EndEverything(const UpdateScene& scene) {
    EndProcessesBelow(scene.workspace.path);
    for (const std::filesystem::path& staging : scene.NewStagingDirectories()) {
        EndProcessesBelow(staging);
    }
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, Victim victim) {
    constexpr const char* kNames[] = {"Broker", "Worker", "Everything"};
    return stream << kNames[static_cast<int>(victim)];
}

bool IsRunning(const DrivenUpdate& update, Victim victim) {
    return ProcessOf(update, victim) != nullptr;
}

std::optional<Kill> KillVictim(const UpdateScene& scene, DrivenUpdate& update, Victim victim) {
    if (victim == Victim::Everything) {
        // The broker would start the application again.
        TerminateProcess(update.broker.get(), kKillCode);
    }
    const UniqueHandle& process = ProcessOf(update, victim);
    // A record of the survivor may be the last already when the file is looked at again.
    const std::string stateBefore = LastState(update).value_or("");
    TerminateProcess(process.get(), kKillCode);
    // Missing afterwards, the file has been lost.
    const std::string stateAfter = LastState(update).value_or("");
    const std::string state = stateAfter.empty() ? stateBefore : stateAfter;
    const bool inTime = AwaitEnd(process.get(), "the end of a killed process") == kKillCode;
    if (victim == Victim::Everything) {
        EndEverything(scene);
    }
    return inTime ? std::optional(Kill{victim, state}) : std::nullopt;
}

}  // namespace updater
