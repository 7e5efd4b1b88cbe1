#include <windows.h>

#include <exception>
#include <optional>
#include <string>

#include "application.h"
#include "names.h"
#include "session_log.h"
#include "text.h"
#include "update_job.h"
#include "update_notice.h"
#include "update_status.h"
#include "window.h"

namespace {

// What the user has not been told yet about the last update; often nothing.
std::wstring DescribeLastUpdate(const corvellan::Application& application) {
    const auto job = corvellan::LastJobDirectory();
    if (!job || corvellan::WasOutcomeTold(*job)) {
        return L"";
    }
    const std::optional<corvellan::UpdateStatus> status = corvellan::ReadUpdateStatus(*job);
    if (!status) {
        return L"";
    }
    if (corvellan::IsOutcome(*status)) {
        corvellan::MarkOutcomeTold(*job);
    }
    return corvellan::DescribeStatus(*status, application.version);
}

void RunApplication() {
    const std::wstring commandLine = GetCommandLineW();
    if (const std::wstring installed = corvellan::NoticeSubject(commandLine); !installed.empty()) {
        corvellan::ShowUpdateNotice(installed);
        return;
    }
    const corvellan::Application application = corvellan::DescribeApplication();
    if (corvellan::IsUpdateBeingInstalled() && !corvellan::IsStartedAnyway(commandLine)) {
        corvellan::StartUpdateNotice(application);
        return;
    }
    const std::wstring outcome = DescribeLastUpdate(application);
    corvellan::AppendSession(application, outcome);
    corvellan::ShowMainWindow(application, outcome.empty() ? std::wstring(L"Welcome to ") +
                                                                 corvellan::kApplicationName +
                                                                 L" " + application.version
                                                           : outcome);
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    try {
        RunApplication();
        return 0;
    } catch (const std::exception& error) {
        MessageBoxW(nullptr, corvellan::Widen(error.what()).c_str(), corvellan::kApplicationName,
                    MB_OK | MB_ICONERROR);
        return 1;
    }
}
