#include "faults/swept_worker.h"

#include <algorithm>
#include <functional>
#include <optional>

#include "faults/simulated_updater.h"
#include "fixtures/application_names.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/named_event.h"
#include "fixtures/scenes/program_version.h"
#include "fixtures/scenes/staging_watch.h"
#include "fixtures/updater_command_line.h"
#include "support/directory_listing.h"
#include "support/file_system.h"
#include "support/handshake.h"
#include "support/process_utilities.h"
#include "support/text_conversion.h"
#include "support/updater_arguments.h"

namespace updater::faults {

namespace {

constexpr DWORD kSetup = 3000;

std::filesystem::path SceneProgram(int majorVersion) {
    const std::filesystem::path testProgram = GetProcessImagePath(GetCurrentProcess());
    const std::wstring name = L"fault-scene-program-" + std::to_wstring(majorVersion) + L".exe";
    return testProgram.parent_path() / name;
}

void WriteTree(const TreeContent& tree, const std::filesystem::path& directory) {
    for (const auto& [name, content] : tree) {
        if (name.ends_with(L'\\')) {
            CreateDirectories(directory / name.substr(0, name.size() - 1));
        } else {
            SetFileAttributesW((directory / name).c_str(), FILE_ATTRIBUTE_NORMAL);
            WriteFileContent(directory / name, content);
        }
    }
}

// A version's files with their inventory.
TreeContent MakeProgram(int majorVersion, const std::filesystem::path& workshop) {
    LayDownVersion(workshop, majorVersion, SceneProgram(majorVersion));
    if (majorVersion > 1) {
        WriteFileContent(workshop / L"added.dll", "only in version 2");
        AddToInventory(workshop, L"added.dll");
    }
    TreeContent program = ReadTreeContent(workshop);
    RemoveTree(workshop);
    return program;
}

std::string RegisteredText() {
    const std::optional<RegistryValue> value = ReadUninstallValue(kDisplayVersion);
    return value ? WideToUtf8(reinterpret_cast<const wchar_t*>(value->bytes.c_str())) : "none";
}

// Everything that stands between the worker and the real system, for one run.
struct WorkerRun : SimulatedUpdater {
    WorkerRun(SweptWorker& laidScene, const WorkerCase& metCase, const std::wstring& eventBaseName);

    void OnReady();
    BOOL StartSetup(LPCWSTR program, LPCWSTR staging, LPPROCESS_INFORMATION started);
    HRESULT OnKnownFolderPath(PWSTR* path) const;

    SweptWorker& scene;
    const WorkerCase& met;
    bool brokerKnows = false;
    UniqueHandle ready;
    UniqueHandle commit;

    ScopedReplacement<decltype(SHGetKnownFolderPath)> knownFolderPath{
        doubles::SHGetKnownFolderPath,
        [this](REFKNOWNFOLDERID, DWORD, HANDLE, PWSTR* path) { return OnKnownFolderPath(path); }};
    ScopedReplacement<decltype(SetEvent)> setEvent{doubles::SetEvent, [this](HANDLE event) {
                                                       const BOOL done = SetEvent(event);
                                                       OnReady();
                                                       return done;
                                                   }};
    ScopedReplacement<decltype(CreateProcessW)> createProcess{
        doubles::CreateProcessW,
        [this](LPCWSTR program, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD,
               LPVOID, LPCWSTR staging, LPSTARTUPINFOW,
               LPPROCESS_INFORMATION started) { return StartSetup(program, staging, started); }};
};

WorkerRun::WorkerRun(SweptWorker& laidScene, const WorkerCase& metCase,
                     const std::wstring& eventBaseName)
    : SimulatedUpdater(laidScene.CommandLine(kApplication, eventBaseName), Rights::Elevated,
                       laidScene.installDirectory),
      scene(laidScene),
      met(metCase),
      ready(CreateNamedEvent(ReadyEventName(eventBaseName))),
      commit(CreateNamedEvent(CommitEventName(eventBaseName))) {}

// A second after the worker is ready the application exits, and the broker commits.
void WorkerRun::OnReady() {
    if (!met.brokerCommits || brokerKnows) {
        return;
    }
    brokerKnows = true;
    time.After(1000, [this] {
        processes.End(kApplication);
        SetEvent(commit.get());
    });
}

// The setup program installs everything when five minutes have passed; then it ends.
BOOL WorkerRun::StartSetup(LPCWSTR program, LPCWSTR staging, LPPROCESS_INFORMATION started) {
    processes.Start(kSetup, program);
    started->hProcess = processes.Open(kSetup);
    started->hThread = processes.Open(kSetup);
    WriteFileContent(std::filesystem::path(staging) / L"install.log", "installing");
    time.After(300'000, [this] {
        scene.Install();
        processes.End(kSetup, met.setupExitCode);
    });
    return TRUE;
}

HRESULT WorkerRun::OnKnownFolderPath(PWSTR* path) const {
    return AnswerFolder(scene.dataFolder, path);
}

}  // namespace

SweptWorker::SweptWorker()
    : previousProgram(MakeProgram(1, directory.path / L"workshop")),
      newProgram(MakeProgram(2, directory.path / L"workshop")),
      userFiles(
          {{L"account.db", "the user's"},
           {L"notes.txt", "the user's, too"},
           {L"logs\\", ""},
           {L"logs\\" IDENTITY_EXECUTABLE, "no program: a copy in the user's own directory"}}) {
    WriteFileContent(installer, "the setup program of version 2");
}

void SweptWorker::AddLink() {
    LayProgram();
    programIsLaid = true;
    CreateDirectories(directory.path / L"elsewhere");
    link.emplace(installDirectory / L"linked", directory.path / L"elsewhere");
    userFiles[L"linked\\"] = {};
}

void SweptWorker::Lay() {
    for (const std::filesystem::path& changed : {jobDirectory, dataFolder}) {
        RemoveTree(changed);
        CreateDirectories(changed);
    }
    if (!programIsLaid) {
        LayProgram();
    }
    WriteUninstallValue(kDisplayVersion, RegistryText(L"1.0"));
}

void SweptWorker::LayProgram() const {
    RemoveTree(installDirectory);
    CreateDirectories(installDirectory);
    WriteTree(previousProgram, installDirectory);
    WriteTree(userFiles, installDirectory);
}

// Two of the installed files are protected, which is in the way of putting the previous ones back.
void SweptWorker::Install() const {
    WriteTree(newProgram, installDirectory);
    for (const wchar_t* file : {L"added.dll", L"data\\app.so"}) {
        SetFileAttributesW((installDirectory / file).c_str(), FILE_ATTRIBUTE_READONLY);
    }
    WriteUninstallValue(kDisplayVersion, RegistryText(L"2.0"));
}

std::wstring SweptWorker::CommandLine(DWORD parentId, const std::wstring& eventBaseName) const {
    UpdaterArguments options = OptionsOf(*this, parentId);
    options[kEventOption] = eventBaseName;
    return CommandLineOf(kWorkerFlag, options);
}

std::filesystem::path SweptWorker::StagingDirectory() const {
    std::filesystem::path staging;
    VisitDirectory(dataFolder,
                   [&](const ListedEntry& entry) { staging = dataFolder / entry.relativePath; });
    return staging;
}

Outcome SweptWorker::Look() const {
    Outcome outcome;
    TreeContent user;
    TreeContent program;
    for (const auto& entry : ReadTreeContent(installDirectory)) {
        (userFiles.contains(entry.first) ? user : program).insert(entry);
    }
    outcome[kProgram] = program == previousProgram ? "previous"
                        : program == newProgram    ? "new"
                                                   : "neither";
    outcome[kUserFiles] = user == userFiles ? "as they were" : "changed";
    outcome[kRegisteredVersion] = RegisteredText();

    const std::filesystem::path staging = StagingDirectory();
    outcome[kStaging] = staging.empty() ? "none" : "left";
    const std::filesystem::path backup = staging / L"backup";
    const bool complete =
        !staging.empty() && PathExists(backup) &&
        WithoutDirectories(ReadTreeContent(backup)) == WithoutDirectories(previousProgram);
    outcome[kBackup] = complete ? "complete" : "not complete";
    outcome[kStatus] = ReadStatus(jobDirectory);
    outcome[kOpenFiles] = FilesHeldOpen(directory.path);
    return outcome;
}

Outcome SweptWorker::Run(const WorkerCase& met, const Watcher& watch) {
    Lay();
    std::string end;
    {
        WorkerRun run(*this, met, L"Local\\" IDENTITY_BASE_NAME L"-" + CreateJobIdentity());
        watch([&end] { end = EndOfUpdater(); });
    }
    Outcome outcome = Look();
    outcome[kEnd] = end;
    programIsLaid = outcome[kProgram] == "previous" && outcome[kUserFiles] == "as they were";
    return outcome;
}

}  // namespace updater::faults
