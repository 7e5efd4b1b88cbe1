#include "support/stand_ins/version_program.h"

#include "fixtures/built_path.h"

namespace updater {

std::filesystem::path VersionProgram(const std::wstring& version) {
    return BuiltPath(CORVELLAN_VERSION_PROGRAMS) / (L"version-" + version + L".exe");
}

}  // namespace updater
