#include "worker/staging.h"

#include "support/windows_api.h"

// After the Windows types that they need.
#include <initguid.h>
#include <knownfolders.h>
#include <sddl.h>
#include <shlobj.h>

#include <memory>
#include <stdexcept>

#include "support/application_identity.h"
#include "support/file_digest.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/process_utilities.h"

namespace updater {

namespace {

// Protected, so nothing is inherited from the folder above; full access for LocalSystem and the
// Administrators group, passed on to what is created inside; nobody else.
constexpr wchar_t kStagingSecurity[] = L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)";

struct TaskMemoryReleaser {
    using pointer = PWSTR;
    void operator()(PWSTR memory) const noexcept { CoTaskMemFree(memory); }
};
using UniqueTaskText = std::unique_ptr<wchar_t, TaskMemoryReleaser>;

UniqueLocalMemory MakeSecurityDescriptor() {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (ConvertStringSecurityDescriptorToSecurityDescriptorW(kStagingSecurity, SDDL_REVISION_1,
                                                             &descriptor, nullptr) == 0) {
        throw std::runtime_error("Cannot create protected staging directory");
    }
    return UniqueLocalMemory(descriptor);
}

bool CreateProtectedDirectory(const std::filesystem::path& directory) {
    const UniqueLocalMemory descriptor = MakeSecurityDescriptor();
    SECURITY_ATTRIBUTES security{};
    security.nLength = sizeof(security);
    security.lpSecurityDescriptor = descriptor.get();
    security.bInheritHandle = FALSE;
    return CreateDirectoryW(directory.c_str(), &security) != 0;
}

}  // namespace

std::filesystem::path MachineDataFolder() {
    // Frees nothing, but brings ole32 into the process from the system's directory. The shell would
    // load it during the next call, and Wine's searches the executable's own directory for it.
    CoTaskMemFree(nullptr);
    PWSTR text = nullptr;
    const HRESULT result = SHGetKnownFolderPath(FOLDERID_ProgramData, 0, nullptr, &text);
    const UniqueTaskText folder(text);
    if (FAILED(result)) {
        throw std::runtime_error("Cannot locate machine staging directory");
    }
    return {folder.get()};
}

std::filesystem::path CreateStagingDirectory() {
    const std::filesystem::path dataFolder = MachineDataFolder();
    std::filesystem::path directory = dataFolder / (kStagingPrefix + CreateJobIdentity());
    // A directory that exists already may belong to somebody else, so it is never used.
    if (!CreateProtectedDirectory(directory)) {
        throw std::runtime_error("Protected staging directory already exists or is inaccessible");
    }
    return directory;
}

std::filesystem::path StageSetupProgram(const std::filesystem::path& setupProgram,
                                        const std::filesystem::path& stagingDirectory,
                                        std::uint64_t expectedSize,
                                        const std::string& expectedSha256) {
    std::filesystem::path copy = stagingDirectory / kStagedSetupProgram;
    CopyToNewFile(setupProgram, copy);
    if (FileSize(copy) != expectedSize || FileSha256Hex(copy) != expectedSha256) {
        throw std::runtime_error("Protected installer size or SHA256 mismatch");
    }
    return copy;
}

}  // namespace updater
