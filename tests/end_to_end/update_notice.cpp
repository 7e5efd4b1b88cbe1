#include "end_to_end/update_notice.h"

#include <vector>

#include "elevation/program_start.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/waiting.h"
#include "end_to_end/window_text.h"
#include "fixtures/application_names.h"

namespace updater {

std::filesystem::path NoticeProgram() {
    return std::filesystem::path(EnvironmentVariable(L"LOCALAPPDATA")) /
           L"" IDENTITY_LOCAL_DIRECTORY / L"update-notice.exe";
}

Notice AwaitNotice() {
    Notice notice;
    AwaitCondition("the notice", [&notice] {
        for (const RunningProcess& running : ListProcessesOf(NoticeProgram())) {
            const std::vector<HWND> windows = ListWindows(running.id);
            if (!windows.empty()) {
                notice = {OpenRunningProcess(running.id), windows.front()};
            }
        }
        return notice.window != nullptr;
    });
    return notice;
}

}  // namespace updater
