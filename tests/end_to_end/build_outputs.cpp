#include "end_to_end/build_outputs.h"

#include <stdexcept>

#include "elevation/program_start.h"
#include "support/file_system.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

// The build's paths are those of the machine that built; where that is not Windows itself, its root
// directory is the drive Z.
std::filesystem::path FromBuild(const wchar_t* path) {
    std::filesystem::path built(path);
    if (!built.has_root_name()) {
        built = L"Z:" / built;
    }
    return built.make_preferred();
}

}  // namespace

std::filesystem::path RealUpdater() {
    const std::wstring other = EnvironmentVariable(kOtherUpdaterVariable);
    return other.empty() ? FromBuild(CORVELLAN_UPDATER) : std::filesystem::path(other);
}

std::filesystem::path ElevationStandIn() {
    return FromBuild(CORVELLAN_STAND_IN);
}

std::filesystem::path RecoveryPage() {
    return FromBuild(CORVELLAN_RECOVERY_PAGE);
}

std::filesystem::path SetupProgram(const std::wstring& name) {
    std::filesystem::path setup = FromBuild(CORVELLAN_SETUPS) / (name + L".exe");
    if (!PathExists(setup)) {
        throw std::runtime_error("The build made no setup program " + WideToUtf8(name));
    }
    return setup;
}

}  // namespace updater
