#pragma once

#include <filesystem>
#include <string>

#include "faults/simulated_processes.h"
#include "fixtures/doubles/scoped_command_line.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/processes/simulated_time.h"
#include "fixtures/scenes/simulated_rights.h"
#include "fixtures/scoped_variable.h"

namespace updater::faults {

inline constexpr DWORD kApplication = 1000;
inline constexpr DWORD kApplicationElsewhere = 2000;

/// What stands between the updater's process and the real system in every scene, for one run: its
/// command line, its rights, the time, and the running processes. Two of these are the application
/// that asks for the update and one of its name from another directory.
struct SimulatedUpdater {
    SimulatedUpdater(std::wstring arguments, Rights held,
                     const std::filesystem::path& installDirectory);

    ScopedCommandLine commandLine;
    /// The worker changes them for its setup program.
    ScopedVariable tmp{L"TMP"};
    ScopedVariable temp{L"TEMP"};
    SimulatedTime time;
    SimulatedProcesses processes;
    SimulatedRights rights;
};

}  // namespace updater::faults
