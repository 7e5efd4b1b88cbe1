#include "end_to_end/update_scene.h"

#include <exception>
#include <iostream>

#include "end_to_end/build_outputs.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/staging_directories.h"
#include "support/extended_length_path.h"
#include "support/file_system.h"

namespace updater {

namespace {

// Made by the real setup program once; the scenes are copies.
struct InstalledVersion1 {
    InstalledVersion1() : directory(workspace.path / L"版本一 安装") {
        RunSetup(SetupProgram(L"v1"), directory);
        entry = ReadUninstallEntry();
    }

    UninstallEntryKeeper entryBefore;
    TemporaryDirectory workspace;
    std::filesystem::path directory;
    UninstallEntry entry;
};

const InstalledVersion1& Version1() {
    static const InstalledVersion1 installed;
    return installed;
}

void CleanUp(const UpdateScene& scene) {
    EndProcessesBelow(scene.workspace.path);
    for (const std::filesystem::path& directory : scene.NewStagingDirectories()) {
        EndProcessesBelow(directory);
        RemoveTree(ExtendedLengthPath(directory));
    }
}

}  // namespace

UpdateScene::UpdateScene() : stagingBefore(ListStagingDirectories()) {
    job.installDirectory = InWorkspace(L"安装 目录");
    job.jobDirectory = InWorkspace(L"任务 目录");
    job.updater = PlaceUpdater(InWorkspace(L"更新程序 目录"));
    CreateDirectories(job.jobDirectory);
    CopyTree(Version1().directory, job.installDirectory);
    // A setup program works in a copy of itself that it puts there. Nobody else knows that copy
    // when the program that started it has been ended.
    temporaryFiles.emplace(L"TMP", InWorkspace(L"临时 文件").native());
    CreateDirectories(InWorkspace(L"临时 文件"));
    ReplaceUninstallEntry(Version1().entry);
    AddUserData(job.installDirectory);
    programBefore = ReadProgramFiles(job.installDirectory);
    OfferSetup(L"v2", L"2.0.0.0");
}

UpdateScene::~UpdateScene() {
    try {
        CleanUp(*this);
    } catch (const std::exception& failure) {
        std::cerr << "An update's processes or directories are left: " << failure.what() << '\n';
    }
}

void UpdateScene::OfferSetup(const std::wstring& setupName, const std::wstring& version) {
    OfferSetupFile(SetupProgram(setupName), version);
}

void UpdateScene::OfferSetupFile(const std::filesystem::path& setup, const std::wstring& version) {
    job.setup = InWorkspace(L"下载 安装程序.exe");
    job.version = version;
    CopyOverFile(setup, job.setup);
}

std::vector<std::filesystem::path> UpdateScene::NewStagingDirectories() const {
    return ListNewStagingDirectories(stagingBefore);
}

}  // namespace updater
