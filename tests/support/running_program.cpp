#include "support/running_program.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "support/argument_quoting.h"
#include "support/file_system.h"
#include "support/process_utilities.h"
#include "support/program_report.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr DWORD kPatience = 30000;

}  // namespace

RunningProgram::RunningProgram(std::filesystem::path executable) : path(std::move(executable)) {
    CreateDirectories(path.parent_path());
    CopyToNewFile(StandInPath(L"waiting-program.exe"), path);

    const std::wstring eventName = L"Local\\RunningProgram-" + CreateJobIdentity();
    const UniqueHandle running = OwnHandle(CreateEventW(nullptr, TRUE, FALSE, eventName.c_str()));
    std::wstring commandLine = QuoteArgument(path.native()) + L' ' + QuoteArgument(eventName);
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    if (!running || CreateProcessW(path.c_str(), commandLine.data(), nullptr, nullptr, FALSE,
                                   CREATE_NO_WINDOW, nullptr, nullptr, &startup, &started) == 0) {
        throw std::runtime_error("Cannot start the waiting program");
    }
    const UniqueHandle thread = OwnHandle(started.hThread);
    process = OwnHandle(started.hProcess);
    processId = started.dwProcessId;
    if (WaitForSingleObject(running.get(), kPatience) != WAIT_OBJECT_0) {
        End();
        throw std::runtime_error("The waiting program does not come up");
    }
}

RunningProgram::~RunningProgram() {
    End();
    DeleteFileW(path.c_str());
}

void RunningProgram::End() const {
    TerminateProcess(process.get(), 0);
    WaitForSingleObject(process.get(), kPatience);
}

}  // namespace updater
