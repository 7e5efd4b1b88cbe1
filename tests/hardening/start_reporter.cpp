// Plays both programs that the updater starts, and reports how it was started. With the switch
// /DIR= it is the setup program: it installs itself there as the application's new version, with
// the inventory. Without it, it is that application.

#include "support/windows_api.h"

// After the Windows types that they need.
#include <shellapi.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>

#include "fixtures/application_names.h"
#include "fixtures/file_content.h"
#include "hardening/start_report.h"
#include "support/application_identity.h"
#include "support/file_digest.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/process_utilities.h"

namespace updater {

namespace {

constexpr int kReporterFailed = 97;

std::filesystem::path DirectoryToInstall() {
    constexpr std::wstring_view kSwitch = L"/DIR=";
    int count = 0;
    LPWSTR* const list = CommandLineToArgvW(GetCommandLineW(), &count);
    const UniqueLocalMemory owned(list);
    for (const wchar_t* const argument : std::span(list, static_cast<std::size_t>(count))) {
        if (std::wstring_view(argument).starts_with(kSwitch)) {
            return argument + kSwitch.size();
        }
    }
    return {};
}

void InstallItself(const std::filesystem::path& directory) {
    const std::filesystem::path application = ApplicationPath(directory);
    CopyOverFile(GetProcessImagePath(GetCurrentProcess()), application);
    WriteFileContent(directory / L"program-files.tsv",
                     IDENTITY_EXECUTABLE "\t" + FileSha256Hex(application) + "\n");
}

int ReportAndPlay() {
    try {
        ReportOwnStart();
        const std::filesystem::path directory = DirectoryToInstall();
        if (!directory.empty()) {
            InstallItself(directory);
        }
        return 0;
    } catch (const std::exception&) {
        return kReporterFailed;
    }
}

}  // namespace

}  // namespace updater

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    return updater::ReportAndPlay();
}
