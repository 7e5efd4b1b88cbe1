#include <windows.h>

#include <corvellan_update.h>

#include <exception>
#include <filesystem>
#include <string>

#include "application.h"
#include "names.h"
#include "session_log.h"
#include "update_notice.h"
#include "update_session.h"
#include "window.h"

namespace {

void RunApplication() {
    const std::wstring commandLine = GetCommandLineW();
    if (const std::wstring installed = corvellan::NoticeSubject(commandLine); !installed.empty()) {
        corvellan::ShowUpdateNotice(installed);
        return;
    }
    const corvellan::Application application = corvellan::DescribeApplication();
    if (AppUpdateIsBeingInstalled() != 0 && !corvellan::IsStartedAnyway(commandLine)) {
        corvellan::StartUpdateNotice(application);
        return;
    }
    corvellan::Greeting greeting;
    const corvellan::UniqueSession session =
        corvellan::OpenUpdateSession(application, greeting.updateStatus);
    const std::wstring outcome = corvellan::TakeOutcomeText(session.get());
    corvellan::AppendSession(application, outcome);
    greeting.message = outcome.empty()
                           ? std::wstring(L"Welcome to ") + corvellan::kApplicationName + L" " +
                                 application.version
                           : outcome;
    corvellan::ShowMainWindow(application, greeting, session.get());
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    try {
        RunApplication();
        return 0;
    } catch (const std::exception& error) {
        MessageBoxW(nullptr, std::filesystem::path(error.what()).c_str(),
                    corvellan::kApplicationName, MB_OK | MB_ICONERROR);
        return 1;
    }
}
