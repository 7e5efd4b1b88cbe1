#include "end_to_end/build_outputs.h"

#include <stdexcept>

#include "elevation/program_start.h"
#include "fixtures/application_names.h"
#include "fixtures/built_path.h"
#include "support/file_system.h"
#include "support/text_conversion.h"

namespace updater {

std::wstring ExecutableName() {
    return kExecutableName;
}

std::wstring UpdaterName() {
    return L"" IDENTITY_UPDATER;
}

std::wstring ErrorBoxTitle() {
    return L"" IDENTITY_ERROR_TITLE;
}

std::wstring ErrorBoxHeading() {
    return L"" IDENTITY_ERROR_HEADING L"\n";
}

std::filesystem::path RealUpdater() {
    const std::wstring other = EnvironmentVariable(kOtherUpdaterVariable);
    return other.empty() ? BuiltPath(CORVELLAN_UPDATER) : std::filesystem::path(other);
}

std::filesystem::path ElevationStandIn() {
    return BuiltPath(CORVELLAN_STAND_IN);
}

std::filesystem::path RecoveryPage() {
    return BuiltPath(CORVELLAN_RECOVERY_PAGE);
}

std::filesystem::path ReleaseTool() {
    return BuiltPath(CORVELLAN_RELEASE_TOOL);
}

std::filesystem::path SetupProgram(const std::wstring& name) {
    std::filesystem::path setup = BuiltPath((CORVELLAN_SETUPS + name + L".exe").c_str());
    if (!PathExists(setup)) {
        throw std::runtime_error("The build made no setup program " + WideToUtf8(name));
    }
    return setup;
}

std::filesystem::path ProgramDirectory(const std::wstring& name) {
    return BuiltPath((CORVELLAN_PROGRAMS + name).c_str());
}

}  // namespace updater
