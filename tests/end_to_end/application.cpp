#include "end_to_end/application.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "end_to_end/running_processes.h"
#include "end_to_end/waiting.h"
#include "end_to_end/window_text.h"
#include "support/application_identity.h"
#include "support/process_utilities.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

// The line's columns in their order, separated by tabs.
std::optional<Session> ParseSession(const std::string& line) {
    std::istringstream columns(line);
    std::string processId;
    std::string elevated;
    std::string directory;
    Session session;
    if (!std::getline(columns, session.version, '\t') || !std::getline(columns, processId, '\t') ||
        !std::getline(columns, elevated, '\t') || !std::getline(columns, directory, '\t')) {
        return std::nullopt;
    }
    std::getline(columns, session.updateOutcome);
    session.processId = static_cast<std::uint32_t>(std::stoul(processId));
    session.elevated = elevated == "1";
    session.workingDirectory = Utf8ToWide(directory);
    return session;
}

void AwaitWindow(const Application& application) {
    AwaitCondition("the application's window", [&] {
        if (HasEnded(application.process.get())) {
            throw std::runtime_error("The application ended without a window, with " +
                                     std::to_string(AwaitExitCode(application.process.get())));
        }
        return !ListWindows(application.id).empty();
    });
}

Application StartWith(const std::wstring& arguments, const std::filesystem::path& installDirectory,
                      StartToken token) {
    ProgramStart start;
    start.program = ApplicationPath(installDirectory);
    start.arguments = arguments;
    start.workingDirectory = installDirectory;
    start.token = token;
    StartedProgram started = StartProgram(start);
    Application application{std::move(started.process), started.processId};
    AwaitWindow(application);
    return application;
}

}  // namespace

Application StartApplication(const std::filesystem::path& installDirectory, StartToken token) {
    return StartWith(L"", installDirectory, token);
}

Application StartApplicationAnyway(const std::filesystem::path& installDirectory) {
    return StartWith(L"--start-anyway", installDirectory, StartToken::Limited);
}

Application AwaitApplication(const std::filesystem::path& installDirectory) {
    Application application;
    AwaitCondition("the application's restart", [&] {
        const std::vector<std::uint32_t> running = ListApplications(installDirectory);
        if (running.empty()) {
            return false;
        }
        application = {OpenRunningProcess(running.front()), running.front()};
        return application.process != nullptr;
    });
    AwaitWindow(application);
    return application;
}

std::vector<std::uint32_t> ListApplications(const std::filesystem::path& installDirectory) {
    const std::vector<RunningProcess> running = ListProcessesOf(ApplicationPath(installDirectory));
    std::vector<std::uint32_t> processIds(running.size());
    std::ranges::transform(running, processIds.begin(), &RunningProcess::id);
    return processIds;
}

void AskToClose(const Application& application) {
    for (HWND window : ListWindows(application.id)) {
        PostMessageW(window, WM_CLOSE, 0, 0);
    }
}

std::uint32_t CloseApplication(const Application& application) {
    AskToClose(application);
    return AwaitEnd(application.process.get(), "the application to close");
}

std::optional<Session> FindSession(const std::filesystem::path& installDirectory,
                                   const Application& application) {
    std::ifstream log(installDirectory / kSessionLog, std::ios::binary);
    std::optional<Session> last;
    // An earlier run may have had the same process id.
    for (std::string line; std::getline(log, line);) {
        std::optional<Session> session = ParseSession(line);
        if (session && session->processId == application.id) {
            last = std::move(session);
        }
    }
    return last;
}

}  // namespace updater
