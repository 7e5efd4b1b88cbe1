#include "end_to_end/host_update.h"

#include <utility>

#include "controls.h"
#include "elevation/program_start.h"
#include "end_to_end/build_outputs.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/waiting.h"
#include "end_to_end/window_text.h"
#include "fixtures/file_content.h"
#include "fixtures/scoped_variable.h"
#include "support/file_digest.h"
#include "support/file_system.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

// Where the example application remembers the job directory of its last update.
std::filesystem::path LastUpdateFile() {
    return std::filesystem::path(EnvironmentVariable(L"LOCALAPPDATA")) / L"Corvellan" /
           L"last-update.txt";
}

std::string LastUpdate() {
    return PathExists(LastUpdateFile()) ? ReadFileContent(LastUpdateFile()) : std::string();
}

void PressButton(const Application& application, WPARAM button) {
    for (HWND window : ListWindows(application.id)) {
        PostMessageW(window, WM_COMMAND, button, 0);
    }
}

std::filesystem::path AwaitNewJobDirectory(const std::string& before) {
    std::string now;
    AwaitCondition("the application to start the updater", [&] {
        now = LastUpdate();
        return !now.empty() && now != before;
    });
    return Utf8ToWide(now.substr(0, now.find_last_not_of("\r\n") + 1));
}

}  // namespace

void OfferUpdate(const std::filesystem::path& feedDirectory, const std::filesystem::path& setup,
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

HostUpdate StartHostUpdate(const std::filesystem::path& installDirectory,
                           const std::filesystem::path& feedDirectory, RecordObserver observer) {
    HostUpdate update;
    update.run = PrepareUpdate({});
    const ScopedVariable feed(L"CORVELLAN_FEED", feedDirectory.native());
    const ScopedVariable updater(L"CORVELLAN_UPDATER", ElevationStandIn().native());
    update.application = StartApplication(installDirectory);
    const std::string before = LastUpdate();
    PressButton(update.application, ID_UPDATE);
    update.jobDirectory = AwaitNewJobDirectory(before);
    FollowUpdate(update.run, update.application.id, update.jobDirectory, std::move(observer));
    AwaitPrompt(update.run);
    return update;
}

void PressCancel(const Application& application) {
    PressButton(application, ID_CANCEL_UPDATE);
}

}  // namespace updater
