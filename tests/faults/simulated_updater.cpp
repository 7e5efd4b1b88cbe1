#include "faults/simulated_updater.h"

#include <utility>

namespace updater::faults {

SimulatedUpdater::SimulatedUpdater(std::wstring arguments, Rights held,
                                   const std::filesystem::path& installDirectory)
    : commandLine(L"updater " + std::move(arguments)), rights(held) {
    processes.Start(kApplication, installDirectory / L"corvellan.exe");
    processes.Start(kApplicationElsewhere, installDirectory.parent_path() / L"corvellan.exe");
}

}  // namespace updater::faults
