#include "session_log.h"

#include <windows.h>

#include <fstream>
#include <system_error>

namespace corvellan {

namespace {

// A path's narrow form is UTF-8, by the manifest.
std::string Narrow(const std::filesystem::path& text) {
    return text.string();
}

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
        << (IsElevated() ? '1' : '0') << '\t' << Narrow(workingDirectory) << '\t'
        << Narrow(updateOutcome) << '\n';
}

}  // namespace corvellan
