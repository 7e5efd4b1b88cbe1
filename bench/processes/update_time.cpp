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

#include <optional>
#include <stdexcept>
#include <string_view>

#include "end_to_end/application.h"
#include "end_to_end/installed_program.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/update_run.h"
#include "end_to_end/waiting.h"
#include "fixtures/uninstall_entry.h"
#include "program_main.h"
#include "support/exit_code.h"
#include "support/file_system.h"
#include "support/status_file.h"
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

// The file is only looked at from outside: one that is open is in the way of the next record.
std::optional<std::uint64_t> TimeOfRecord(const std::filesystem::path& statusFile,
                                          std::uintmax_t size) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (GetFileAttributesExW(statusFile.c_str(), GetFileExInfoStandard, &data) == 0 ||
        data.nFileSizeLow != size) {
        return std::nullopt;
    }
    return TicksOf(data.ftLastWriteTime);
}

// The records' sizes tell them apart.
std::uintmax_t SizeOfReadyRecord(const std::filesystem::path& workspace) {
    updater::CreateDirectories(workspace);
    updater::WriteUpdateStatus(workspace, updater::kStateReady,
                               "Authorized helper is waiting for application exit",
                               updater::kExitSucceeded);
    return updater::FileSize(workspace / L"status.json");
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

struct MeasuredUpdate {
    updater::UniqueHandle broker;
    updater::UniqueHandle promptStandIn;
    updater::UniqueHandle worker;
    updater::UniqueHandle setup;
    updater::UniqueHandle application;
    std::uint64_t ready = 0;
};

updater::UpdateRun Begin(const updater::UpdateJob& job, std::uint32_t applicationId) {
    updater::UpdateRun run = updater::StartUpdate(job, updater::UpdateOptions(job, applicationId));
    run.records.reset();
    updater::AwaitPrompt(run);
    SetEvent(run.answered.get());
    return run;
}

MeasuredUpdate CarryOut(const updater::UpdateJob& job, std::uintmax_t readySize) {
    updater::Application application = updater::StartApplication(job.installDirectory);
    updater::UpdateRun run = Begin(job, application.id);
    MeasuredUpdate update;
    update.broker = updater::OpenRunningProcess(run.brokerId);
    updater::AwaitCondition("the record \"ready\"", [&] {
        const auto ready = TimeOfRecord(job.jobDirectory / L"status.json", readySize);
        update.ready = ready.value_or(0);
        return ready.has_value();
    });
    update.worker = updater::OpenWorker(run);
    updater::CloseApplication(application);
    update.setup = AwaitSetupProgram();
    const std::uint32_t exitCode = updater::AwaitBroker(run);
    if (exitCode != updater::kExitSucceeded) {
        throw std::runtime_error("The update ended with " + std::to_string(exitCode));
    }
    update.application = std::move(application.process);
    update.promptStandIn = std::move(run.helper);
    return update;
}

void Print(const MeasuredUpdate& update) {
    const Lifetime worker = LifetimeOf(update.worker);
    const Lifetime standIn = LifetimeOf(update.promptStandIn);
    const double whole = SecondsOf(LifetimeOf(update.broker));
    const double setup = SecondsOf(LifetimeOf(update.setup));
    const double prompt =
        SecondsOf(standIn.start, worker.start) + SecondsOf(worker.end, standIn.end);
    const double application = SecondsOf(update.ready, LifetimeOf(update.application).end);
    PrintNumbers({whole - setup - prompt - application, setup, prompt, application});
}

void Update(std::span<wchar_t*> arguments) {
    const std::filesystem::path installDirectory = arguments[2];
    const std::filesystem::path workspace = arguments[3];
    updater::UpdateJob job;
    job.updater = updater::PlaceUpdater(workspace / L"updater");
    job.installDirectory = installDirectory;
    job.jobDirectory = workspace / L"job";
    job.setup = arguments[1];
    job.version = L"2.0.0.0";
    updater::CreateDirectories(job.jobDirectory);
    Print(CarryOut(job, SizeOfReadyRecord(workspace)));
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
