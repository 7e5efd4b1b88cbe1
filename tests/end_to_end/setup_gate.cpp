#include "end_to_end/setup_gate.h"

#include "fixtures/file_content.h"
#include "support/file_system.h"

namespace updater {

std::vector<RunningProcess> ListSetups(const UpdateScene& scene) {
    std::vector<RunningProcess> setups;
    for (const std::filesystem::path& staging : scene.NewStagingDirectories()) {
        const std::vector<RunningProcess> found = ListProcessesOf(staging / L"installer.exe");
        setups.insert(setups.end(), found.begin(), found.end());
    }
    return setups;
}

SetupGate::SetupGate(const UpdateScene& scene)
    : path(scene.InWorkspace(L"大门 gate")), variable(L"CORVELLAN_SETUP_GATE", path.native()) {}

bool SetupGate::IsReached() const {
    return PathExists(path.native() + L".reached");
}

void SetupGate::Open() const {
    WriteFileContent(path, "");
}

}  // namespace updater
