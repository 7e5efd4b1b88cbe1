// update-time install SETUP PROGRAM
// update-time update SETUP PROGRAM WORKSPACE
// update-time forget
//
// "install" has a setup program install the application. "update" has the application updated by
// the real broker and worker with that setup program once more, and prints in seconds:
//
//   the updater's own time: from the broker's start to its end, without what is not the updater's
//   the setup program's time
//   the time of the stand-in for the prompt: before the worker's start and after its end
//   the application's time: from the record "ready" to its exit
//
// "forget" removes what Windows knows about the installed application.

#include <stdexcept>
#include <string_view>

#include "end_to_end/application.h"
#include "end_to_end/installed_program.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/waiting.h"
#include "end_to_end/whole_update.h"
#include "fixtures/uninstall_entry.h"
#include "program_main.h"
#include "support/exit_code.h"
#include "support/file_system.h"
#include "support/windows_api.h"

namespace bench {

namespace {

// In units of 100 nanoseconds.
std::uint64_t TicksOf(const FILETIME& time) {
    return (std::uint64_t{time.dwHighDateTime} << 32U) | time.dwLowDateTime;
}

double SecondsOf(std::uint64_t begin, std::uint64_t end) {
    return (static_cast<double>(end) - static_cast<double>(begin)) / 1e7;
}

struct Lifetime {
    std::uint64_t start;
    std::uint64_t end;
};

Lifetime LifetimeOf(const updater::UniqueHandle& process) {
    FILETIME created{};
    FILETIME ended{};
    FILETIME kernel{};
    FILETIME user{};
    if (GetProcessTimes(process.get(), &created, &ended, &kernel, &user) == 0) {
        updater::RaiseLastError("Cannot read a process's times");
    }
    return {TicksOf(created), TicksOf(ended)};
}

double SecondsOf(const Lifetime& lifetime) {
    return SecondsOf(lifetime.start, lifetime.end);
}

updater::UniqueHandle AwaitSetupProgram() {
    updater::UniqueHandle process;
    updater::AwaitCondition("the setup program", [&] {
        Sleep(50);
        for (const updater::RunningProcess& running : updater::ListRunningProcesses()) {
            if (running.image.filename() == L"installer.exe") {
                process = updater::OpenRunningProcess(running.id);
            }
        }
        return process != nullptr;
    });
    return process;
}

struct MeasuredUpdate : updater::WholeUpdate {
    updater::UniqueHandle setup;
    std::uint64_t readyTime = 0;
};

void CarryOut(MeasuredUpdate& update) {
    update.BeginUpdate();
    update.readyTime = updater::MarkOfLastRecord(update.job.jobDirectory).value().written;
    update.AwaitWorker();
    updater::CloseApplication(update.application);
    update.setup = AwaitSetupProgram();
    const std::uint32_t exitCode = update.AwaitBroker();
    if (exitCode != updater::kExitSucceeded) {
        throw std::runtime_error("The update ended with " + std::to_string(exitCode));
    }
}

void Print(const MeasuredUpdate& update) {
    const Lifetime worker = LifetimeOf(update.worker);
    const Lifetime standIn = LifetimeOf(update.helper);
    const double whole = SecondsOf(LifetimeOf(update.broker));
    const double setup = SecondsOf(LifetimeOf(update.setup));
    const double prompt =
        SecondsOf(standIn.start, worker.start) + SecondsOf(worker.end, standIn.end);
    const double application =
        SecondsOf(update.readyTime, LifetimeOf(update.application.process).end);
    PrintNumbers({whole - setup - prompt - application, setup, prompt, application});
}

void Update(std::span<wchar_t*> arguments) {
    const std::filesystem::path installDirectory = arguments[2];
    const std::filesystem::path workspace = arguments[3];
    MeasuredUpdate update;
    update.job.updater = updater::PlaceUpdater(workspace / L"updater");
    update.job.installDirectory = installDirectory;
    update.job.jobDirectory = workspace / L"job";
    update.job.setup = arguments[1];
    update.job.version = L"2.0.0.0";
    updater::CreateDirectories(update.job.jobDirectory);
    CarryOut(update);
    Print(update);
    updater::EndProcessesBelow(installDirectory);
}

void Run(std::span<wchar_t*> arguments) {
    const std::wstring_view operation = arguments[0];
    if (operation == L"install") {
        updater::RunSetup(arguments[1], arguments[2]);
    } else if (operation == L"update") {
        Update(arguments);
    } else {
        updater::ReplaceUninstallEntry({});
    }
}

std::size_t ArgumentsOf(std::wstring_view operation) {
    return operation == L"install" ? 3 : operation == L"update" ? 4 : 1;
}

}  // namespace

}  // namespace bench

int wmain(int count, wchar_t** tokens) {
    const std::size_t wanted = bench::ArgumentsOf(count > 1 ? tokens[1] : L"");
    return bench::RunProgram({tokens, static_cast<std::size_t>(count)}, wanted,
                             "update-time install SETUP PROGRAM | update SETUP PROGRAM WORKSPACE | "
                             "forget",
                             bench::Run);
}
