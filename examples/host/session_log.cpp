#include "session_log.h"

#include <windows.h>

#include <fstream>
#include <string_view>
#include <system_error>

#include "text.h"

namespace corvellan {

namespace {

bool IsElevated() {
    TOKEN_ELEVATION elevation{};
    DWORD size = 0;
    return GetTokenInformation(GetCurrentProcessToken(), TokenElevation, &elevation,
                               sizeof(elevation), &size) != 0 &&
           elevation.TokenIsElevated != 0;
}

}  // namespace

void AppendSession(const Application& application, const std::wstring& updateOutcome) {
    std::error_code ignored;
    const std::filesystem::path workingDirectory = std::filesystem::current_path(ignored);
    std::ofstream log(application.installDirectory / L"sessions.log",
                      std::ios::binary | std::ios::app);
    log << Narrow(application.version) << '\t' << GetCurrentProcessId() << '\t'
        << (IsElevated() ? '1' : '0') << '\t' << Narrow(workingDirectory.native()) << '\t'
        << Narrow(updateOutcome) << '\n';
}

}  // namespace corvellan
