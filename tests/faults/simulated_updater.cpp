#include "faults/simulated_updater.h"
#include "fixtures/application_names.h"

#include <utility>

namespace updater::faults {

SimulatedUpdater::SimulatedUpdater(std::wstring arguments, Rights held,
                                   const std::filesystem::path& installDirectory)
    : commandLine(L"updater " + std::move(arguments)), rights(held) {
    processes.Start(kApplication, installDirectory / kExecutableName);
    processes.Start(kApplicationElsewhere, installDirectory.parent_path() / kExecutableName);
}

}  // namespace updater::faults
