#include "faults/simulated_updater.h"

#include <utility>

namespace updater::faults {

SimulatedUpdater::SimulatedUpdater(std::wstring arguments, Rights rights,
                                   const std::filesystem::path& installDirectory)
    : commandLine(L"updater " + std::move(arguments)),
      getTokenInformation(
          doubles::GetTokenInformation, [rights](HANDLE token, TOKEN_INFORMATION_CLASS information,
                                                 LPVOID buffer, DWORD size, PDWORD length) {
              const BOOL done = GetTokenInformation(token, information, buffer, size, length);
              static_cast<TOKEN_ELEVATION*>(buffer)->TokenIsElevated =
                  rights == Rights::Elevated ? 1 : 0;
              return done;
          }) {
    processes.Start(kApplication, installDirectory / L"corvellan.exe");
    processes.Start(kApplicationElsewhere, installDirectory.parent_path() / L"corvellan.exe");
}

}  // namespace updater::faults
