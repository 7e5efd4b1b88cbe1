// Takes pictures of the example's window in an update: screenshot-driver DIRECTORY

#include <exception>
#include <filesystem>
#include <iostream>

#include "controls.h"
#include "demo/screenshot.h"
#include "end_to_end/build_outputs.h"
#include "end_to_end/update_notice.h"
#include "end_to_end/update_request.h"
#include "end_to_end/update_scene.h"
#include "end_to_end/waiting.h"
#include "end_to_end/window_text.h"
#include "fixtures/application_names.h"
#include "fixtures/install_mutex.h"

namespace updater {

namespace {

void TakeUpdate(UpdateScene& scene, const std::filesystem::path& pictures) {
    Publisher publisher;
    // Behind the middle the server sends ten bytes a second.
    PublishRelease(publisher, L"v2", L"v2", L"?drip=2097152&times=1");
    StartWithFeed(scene, publisher);
    HWND window = ListWindows(scene.application.id).front();
    AwaitUpdateStatus(scene.application, "Version 2.0.0.0 is available (");
    SaveScreenshot(window, pictures / L"found.png");
    PressButton(scene.application, ID_DOWNLOAD);
    AwaitUpdateStatus(scene.application, "Version 2.0.0.0 is being downloaded: 2.1 MB of ");
    SaveScreenshot(window, pictures / L"downloading.png");
    PressButton(scene.application, ID_CANCEL_UPDATE);
    AwaitUpdateStatus(scene.application, "Cancelled");
    publisher.servers.EndDripping();
    PressButton(scene.application, ID_DOWNLOAD);
    AwaitUpdateStatus(scene.application, "Version 2.0.0.0 is ready to install");
    SaveScreenshot(window, pictures / L"ready.png");
    RestartToUpdate(scene);
    scene.AnswerPrompt();
    scene.AwaitBroker();
    const Application restarted = AwaitApplication(scene.job.installDirectory);
    AwaitUpdateStatus(restarted, "The application is up to date");
    SaveScreenshot(ListWindows(restarted.id).front(), pictures / L"outcome.png");
    CloseApplication(restarted);
}

void TakeNotice(const UpdateScene& scene, const std::filesystem::path& pictures) {
    const UniqueHandle mutex = OwnHandle(CreateMutexW(nullptr, TRUE, kInstallMutexName));
    const StartedProgram second = StartProgram(
        {.program = scene.job.installDirectory / kExecutableName, .token = StartToken::Limited});
    const Notice notice = AwaitNotice();
    SaveScreenshot(notice.window, pictures / L"notice.png");
    PostMessageW(notice.window, WM_COMMAND, IDCANCEL, 0);
    AwaitEnd(notice.process.get(), "the notice's end");
}

int TakePictures(const std::filesystem::path& pictures) {
    try {
        UpdateScene scene;
        const ScopedVariable userData(L"LOCALAPPDATA", scene.InWorkspace(L"user data").native());
        TakeUpdate(scene, pictures);
        TakeNotice(scene, pictures);
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}

}  // namespace

}  // namespace updater

int wmain(int count, wchar_t** tokens) {
    return count == 2 ? updater::TakePictures(tokens[1]) : 2;
}
