#include "worker/installation_world.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "fixtures/file_content.h"
#include "fixtures/processes/stand_in_process.h"
#include "support/file_digest.h"
#include "support/file_system.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

constexpr std::array<const wchar_t*, 3> kProgramFiles = {L"corvellan.exe", L"data\\app.so",
                                                         L"data\\\u8D44\u6E90 1\\ui.bin"};

// Makes one version of the program with its inventory.
void LayDownProgram(const std::filesystem::path& directory, int majorVersion) {
    CreateDirectories(directory);
    CopyOverFile(StandInApplication(majorVersion), directory / kProgramFiles[0]);
    WriteFileContent(directory / kProgramFiles[1], "library " + std::to_string(majorVersion));
    WriteFileContent(directory / kProgramFiles[2], "resources " + std::to_string(majorVersion));
    std::string inventory;
    for (const std::filesystem::path file : kProgramFiles) {
        inventory += WideToUtf8(file.native()) + '\t' + FileSha256Hex(directory / file) + '\n';
    }
    WriteFileContent(directory / L"program-files.tsv", inventory);
}

// Lays the steps down where the setup program finds them.
void WriteSetupSteps(const std::vector<std::string>& steps, const std::filesystem::path& file) {
    std::string lines;
    for (const std::string& step : steps) {
        lines += step + '\n';
    }
    WriteFileContent(file, lines);
    SetEnvironmentVariableW(L"CORVELLAN_STAND_IN_SETUP", file.c_str());
}

std::string CopyStep(const std::filesystem::path& package, const std::filesystem::path& file) {
    return "copy\t" + WideToUtf8((package / file).native()) + '\t' + WideToUtf8(file.native());
}

bool Within(const std::filesystem::path& file, const std::filesystem::path& directory) {
    return file.native().starts_with(directory.native() + L"\\");
}

}  // namespace

InstallationWorld::InstallationWorld() {
    LayDownProgram(installation.installDirectory, 1);
    WriteFileContent(installation.installDirectory / L"account.db", "the user's");
    LayDownProgram(package, 2);
    WriteFileContent(package / L"added.dll", "only in version 2");
    CreateDirectories(installation.jobDirectory);
    CreateDirectories(installation.stagingDirectory);
    CopyOverFile(StandInSetup(), installation.setupProgram);
    WriteUninstallValue(kDisplayVersion, RegistryText(L"1.0"));
    LetSetupEndWith("0");

    actions.clear();
    status.beforeMove = [this](const StatusRecord& record) {
        actions.push_back("write " + record.state);
        return !faults.unwritableStates.contains(record.state);
    };
    processes.beforeStart = [this](const ProcessStart&) -> std::optional<DWORD> {
        actions.emplace_back("start setup");
        if (onSetupStart) {
            onSetupStart();
        }
        WriteSetupSteps(setupSteps, directory.path / L"steps.txt");
        return std::nullopt;
    };
}

void InstallationWorld::LetSetupEndWith(const std::string& exitCode) {
    setupSteps = {CopyStep(package, L"program-files.tsv"), CopyStep(package, L"added.dll"),
                  "register\t2.0"};
    std::ranges::transform(kProgramFiles, std::back_inserter(setupSteps),
                           [this](const wchar_t* file) { return CopyStep(package, file); });
    setupSteps.push_back("exit\t" + exitCode);
}

std::wstring InstallationWorld::ExpectedCommandLine() const {
    return L"\"" + installation.setupProgram.native() +
           L"\" /VERYSILENT /SUPPRESSMSGBOXES /NORESTART /SP- /NOCLOSEAPPLICATIONS "
           L"/NOFORCECLOSEAPPLICATIONS /NORESTARTAPPLICATIONS /DIR=\"" +
           installation.installDirectory.native() + L"\" /LOG=\"" +
           installation.stagingDirectory.native() + L"\\install.log\"";
}

BOOL InstallationWorld::OnFirstProcess(HANDLE snapshot, LPPROCESSENTRY32W entry) {
    actions.emplace_back("list processes");
    ++processLists;
    return faults.unreadableProcessLists.contains(processLists) ? FALSE
                                                                : Process32FirstW(snapshot, entry);
}

DWORD InstallationWorld::OnVersionInfoSize(LPCWSTR file, LPDWORD handle) {
    actions.emplace_back("read version");
    ++versionReads;
    if (onVersionRead) {
        onVersionRead(versionReads);
    }
    return faults.unreadableVersions.contains(versionReads) ? 0
                                                            : GetFileVersionInfoSizeW(file, handle);
}

LSTATUS InstallationWorld::OnRegGetValue(HKEY root, LPCWSTR key, LPCWSTR value, DWORD flags,
                                         LPDWORD type, PVOID buffer, LPDWORD bytes) {
    actions.emplace_back("read registered version");
    const auto* begin = static_cast<const char*>(buffer);
    const bool zero = std::all_of(begin, begin + *bytes, [](char byte) { return byte == 0; });
    registryQueries.push_back({root, key, value, flags, type != nullptr, zero, *bytes});
    return RegGetValueW(root, key, value, flags, type, buffer, bytes);
}

// The first copy out of the installation, or back into it, stands for the whole.
BOOL InstallationWorld::OnCopyFile(LPCWSTR source, LPCWSTR target, BOOL failIfExists) {
    const std::filesystem::path& program = installation.installDirectory;
    const bool backup = Within(source, program);
    const bool restore = Within(target, program);
    const char* action = backup ? "back up" : restore ? "restore" : "copy";
    if (actions.empty() || actions.back() != action) {
        actions.emplace_back(action);
    }
    const BOOL done = CopyFileW(source, target, failIfExists);
    if ((backup && faults.backupCorrupted) || (restore && faults.restoreCorrupted)) {
        WriteFileContent(target, "not what was copied");
    }
    return done;
}

}  // namespace updater
