// Updates that the application itself asks for.

#include <algorithm>
#include <utility>
#include <vector>

#include "controls.h"
#include "end_to_end/build_outputs.h"
#include "end_to_end/waiting.h"
#include "end_to_end/whole_update.h"
#include "end_to_end/window_text.h"
#include "fixtures/file_content.h"
#include "support/file_digest.h"
#include "support/file_system.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

void PressButton(const Application& application, WPARAM button) {
    for (HWND window : ListWindows(application.id)) {
        PostMessageW(window, WM_COMMAND, button, 0);
    }
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
    update.startTime = found->startTime;
    update.job.updater = found->image;
    update.job.jobDirectory = found->image.parent_path();
}

}  // namespace

void OfferInFeed(const std::filesystem::path& feedDirectory, const std::filesystem::path& setup,
                 const std::string& version) {
    const std::filesystem::path offered = feedDirectory / setup.filename();
    CreateDirectories(feedDirectory);
    CopyOverFile(setup, offered);
    WriteFileContent(feedDirectory / L"update-feed.json",
                     R"({"version":")" + version + R"(","size":)" +
                         std::to_string(FileSize(offered)) + R"(,"sha256":")" +
                         FileSha256Hex(offered) + R"(","setup":")" +
                         WideToUtf8(setup.filename().native()) + R"("})");
}

void RequestUpdate(WholeUpdate& update, const std::filesystem::path& feedDirectory) {
    {
        const StandInVariables variables(update.job.consent, update.eventBaseName);
        const ScopedVariable feed(L"CORVELLAN_FEED", feedDirectory.native());
        const ScopedVariable updater(L"CORVELLAN_UPDATER", ElevationStandIn().native());
        update.application = StartApplication(update.job.installDirectory);
    }
    PressButton(update.application, ID_UPDATE);
    AwaitCondition("the application to start the updater", [&] {
        FindUpdater(update);
        return update.standIn.process != nullptr;
    });
    update.applicationFollows = true;
    update.AwaitPrompt();
}

void PressCancel(const Application& application) {
    PressButton(application, ID_CANCEL_UPDATE);
}

}  // namespace updater
