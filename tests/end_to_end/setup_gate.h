#pragma once

#include <filesystem>
#include <vector>

#include "end_to_end/running_processes.h"
#include "end_to_end/update_scene.h"
#include "fixtures/scoped_variable.h"

namespace updater {

/// Returns the setup programs that run in the scene's staging directories.
std::vector<RunningProcess> ListSetups(const UpdateScene& scene);

/// Lets a setup program of the scene, one of tests/end_to_end/setups, wait before it installs
/// anything until somebody opens the gate. To suspend it instead would be in the way of others: it
/// may just have something that they need, such as the display while it connects to that.
struct SetupGate {
    explicit SetupGate(const UpdateScene& scene);

    [[nodiscard]] bool IsReached() const;
    void Open() const;

    std::filesystem::path path;
    ScopedVariable variable;
};

}  // namespace updater
