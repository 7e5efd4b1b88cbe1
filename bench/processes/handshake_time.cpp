// handshake-time exit|cancel PROGRAMS WORKSPACE PHASE
//
// Has the real broker wait for the application's exit and measures, in seconds:
//
//   exit    from the application's exit to the commit, as the worker sees it; and, as the floor,
//           from the exit to the end of a bare wait for the application's process
//   cancel  from the cancel marker to the broker's end
//
// PROGRAMS holds the stand-ins for application and worker. WORKSPACE is a directory that does not
// exist yet. PHASE is how many milliseconds after the broker's record "ready" the application
// exits or the marker comes.

#include <stdexcept>
#include <string>
#include <string_view>

#include "elevation/program_start.h"
#include "end_to_end/build_outputs.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/waiting.h"
#include "end_to_end/whole_update.h"
#include "fixtures/application_names.h"
#include "fixtures/file_content.h"
#include "processes/notes.h"
#include "program_main.h"
#include "support/application_identity.h"
#include "support/exit_code.h"
#include "support/file_system.h"

namespace bench {

namespace {

struct Handshake {
    std::filesystem::path programs;
    std::filesystem::path workspace;
    std::filesystem::path installDirectory = workspace / L"program";
    std::filesystem::path jobDirectory = workspace / L"job";
    std::filesystem::path updater = workspace / L"" IDENTITY_UPDATER;
    SharedNotes shared = OpenNotes();
    updater::UniqueHandle exitEvent =
        updater::OwnHandle(CreateEventW(nullptr, TRUE, FALSE, kExitEventName));
    updater::StartedProgram application{};
    updater::StartedProgram broker{};
};

updater::StartedProgram StartUnelevated(updater::ProgramStart start) {
    start.token = updater::StartToken::Limited;
    return updater::StartProgram(start);
}

void StartApplication(Handshake& handshake) {
    const std::filesystem::path executable = updater::ApplicationPath(handshake.installDirectory);
    updater::CreateDirectories(handshake.installDirectory);
    updater::CopyToNewFile(handshake.programs / L"bench-application.exe", executable);
    handshake.application = StartUnelevated({.program = executable});
}

// The updater starts itself as the worker. While the broker runs, the stand-in for the worker has
// its name.
void StartBroker(Handshake& handshake) {
    updater::CreateDirectories(handshake.jobDirectory);
    updater::CopyToNewFile(updater::RealUpdater(), handshake.updater);
    const updater::UpdaterArguments options = {
        {updater::kInstallDirOption, handshake.installDirectory.native()},
        {updater::kJobDirOption, handshake.jobDirectory.native()},
        {updater::kParentPidOption, std::to_wstring(handshake.application.processId)}};
    handshake.broker =
        StartUnelevated({.program = handshake.updater,
                         .arguments = updater::CommandLineOf(updater::kBrokerFlag, options),
                         .state = updater::StartState::Suspended});
    const std::filesystem::path aside = handshake.workspace / L"broker.exe";
    if (MoveFileExW(handshake.updater.c_str(), aside.c_str(), 0) == 0) {
        updater::RaiseLastError("Cannot rename the updater");
    }
    updater::CopyToNewFile(handshake.programs / L"bench-worker.exe", handshake.updater);
    ResumeThread(handshake.broker.thread.get());
    updater::AwaitCondition("the broker's record \"ready\"", [&] {
        return updater::PathExists(handshake.jobDirectory / L"status.json");
    });
}

void RequireBrokersEnd(const Handshake& handshake, std::uint32_t expected) {
    const std::uint32_t exitCode =
        updater::AwaitEnd(handshake.broker.process.get(), "the broker's end");
    if (exitCode != expected) {
        throw std::runtime_error("The broker ended with " + std::to_string(exitCode));
    }
}

void MeasureExit(const Handshake& handshake) {
    SetEvent(handshake.exitEvent.get());
    updater::AwaitEnd(handshake.application.process.get(), "the application's end");
    const std::int64_t endSeen = CounterNow();
    RequireBrokersEnd(handshake, updater::kExitSucceeded);
    const Notes& notes = *handshake.shared.notes;
    PrintNumbers({SecondsBetween(notes.applicationExit, notes.commitSeen),
                  SecondsBetween(notes.applicationExit, endSeen)});
}

void MeasureCancel(const Handshake& handshake) {
    const std::int64_t begin = CounterNow();
    updater::WriteFileContent(handshake.jobDirectory / L"cancel", "");
    RequireBrokersEnd(handshake, updater::kExitCancelled);
    const double seconds = SecondsSince(begin);
    PrintNumbers({seconds});
}

void Run(std::span<wchar_t*> arguments) {
    Handshake handshake{.programs = arguments[1], .workspace = arguments[2]};
    StartApplication(handshake);
    StartBroker(handshake);
    Sleep(static_cast<DWORD>(std::stoul(arguments[3])));
    if (std::wstring_view(arguments[0]) == L"exit") {
        MeasureExit(handshake);
    } else {
        MeasureCancel(handshake);
    }
    updater::EndProcessesBelow(handshake.workspace);
}

}  // namespace

}  // namespace bench

int wmain(int count, wchar_t** tokens) {
    return bench::RunProgram({tokens, static_cast<std::size_t>(count)}, 4,
                             "handshake-time exit|cancel PROGRAMS WORKSPACE PHASE", bench::Run);
}
