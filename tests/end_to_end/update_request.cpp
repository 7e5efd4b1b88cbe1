#include "end_to_end/update_request.h"

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

#include "controls.h"
#include "end_to_end/build_outputs.h"
#include "end_to_end/waiting.h"
#include "end_to_end/window_text.h"
#include "support/file_system.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

// After the Windows types that it needs.
#include <commctrl.h>

namespace updater {

namespace {

// Puts another program in the installed updater's place; the application copies it from there.
struct UpdaterInStead {
    UpdaterInStead(const std::filesystem::path& installDirectory,
                   const std::filesystem::path& program)
        : installed(installDirectory / UpdaterName()), kept(installed.native() + L".kept") {
        std::filesystem::rename(installed, kept);
        CopyToNewFile(program, installed);
    }
    ~UpdaterInStead() {
        // Nobody runs it here, and what is left if this fails the update's own checks find.
        MoveFileExW(kept.c_str(), installed.c_str(), MOVEFILE_REPLACE_EXISTING);
    }
    UpdaterInStead(const UpdaterInStead&) = delete;
    UpdaterInStead& operator=(const UpdaterInStead&) = delete;

    std::filesystem::path installed;
    std::filesystem::path kept;
};

void RequireRunning(const Application& application) {
    if (HasEnded(application.process.get())) {
        throw std::runtime_error("The application has ended");
    }
}

// Null if there is none.
HWND ControlOf(const Application& application, int control) {
    for (HWND window : ListWindows(application.id)) {
        if (HWND found = GetDlgItem(window, control); found != nullptr) {
            return found;
        }
    }
    return nullptr;
}

std::string ControlText(const Application& application, int control) {
    HWND found = ControlOf(application, control);
    return found == nullptr ? "" : WideToUtf8(WindowText(found));
}

// The application starts the updater's copy in the job directory.
void FindUpdater(WholeUpdate& update) {
    const std::vector<RunningProcess> running = ListRunningProcesses();
    const auto found = std::ranges::find_if(running, [&](const RunningProcess& process) {
        return process.parentId == update.application.id &&
               process.image.filename() == UpdaterName();
    });
    if (found == running.end()) {
        return;
    }
    update.standIn = {OpenRunningProcess(found->id), nullptr, found->id};
    update.job.updater = found->image;
    update.job.jobDirectory = found->image.parent_path();
}

}  // namespace

void StartWithFeed(WholeUpdate& update, const Publisher& publisher) {
    const StandInVariables variables(update.job.consent, update.eventBaseName);
    const FeedVariables feed(publisher);
    update.application = StartApplication(update.job.installDirectory);
}

void PressButton(const Application& application, int button) {
    HWND control = ControlOf(application, button);
    if (IsWindowVisible(control) == 0 || IsWindowEnabled(control) == 0) {
        throw std::runtime_error("The button " + std::to_string(button) + " cannot be pressed");
    }
    SendCommand(application, button);
}

void SendCommand(const Application& application, int button) {
    for (HWND window : ListWindows(application.id)) {
        PostMessageW(window, WM_COMMAND, static_cast<WPARAM>(button), 0);
    }
}

std::string UpdateStatusText(const Application& application) {
    return ControlText(application, ID_UPDATE_STATUS);
}

std::string GreetingText(const Application& application) {
    AwaitCondition("a window that is complete", [&] {
        const std::vector<HWND> windows = ListWindows(application.id);
        return !windows.empty() && !WindowText(windows.front()).empty();
    });
    return ControlText(application, ID_MESSAGE);
}

int ShownProgress(const Application& application) {
    HWND bar = ControlOf(application, ID_PROGRESS);
    return IsWindowVisible(bar) == 0 ? -1 : static_cast<int>(SendMessageW(bar, PBM_GETPOS, 0, 0));
}

void AwaitUpdateStatus(const Application& application, const std::string& beginning) {
    std::string text;
    try {
        AwaitCondition("\"" + beginning + "\" in the application's window", [&] {
            RequireRunning(application);
            text = UpdateStatusText(application);
            return text.starts_with(beginning);
        });
    } catch (const TimeOut& timeOut) {
        throw TimeOut(std::string(timeOut.what()) + "; it says \"" + text + "\"");
    }
}

void DownloadOffered(const WholeUpdate& update, const std::string& version) {
    AwaitUpdateStatus(update.application, "Version " + version + " is available (");
    PressButton(update.application, ID_DOWNLOAD);
    AwaitUpdateStatus(update.application, "Version " + version + " is ready to install");
}

void RestartToUpdate(WholeUpdate& update) {
    const UpdaterInStead standIn(update.job.installDirectory, ElevationStandIn());
    update.startTime = SystemTime();
    PressButton(update.application, ID_UPDATE);
    AwaitCondition("the application to start the updater", [&] {
        FindUpdater(update);
        return update.standIn.process != nullptr;
    });
    update.applicationFollows = true;
    update.AwaitPrompt();
}

void UpdateWith(const std::filesystem::path& program, const WholeUpdate& update,
                const std::string& beginning) {
    const UpdaterInStead other(update.job.installDirectory, program);
    PressButton(update.application, ID_UPDATE);
    AwaitUpdateStatus(update.application, beginning);
}

void RequestUpdate(WholeUpdate& update, const Publisher& publisher, const std::string& version) {
    StartWithFeed(update, publisher);
    DownloadOffered(update, version);
    RestartToUpdate(update);
}

}  // namespace updater
