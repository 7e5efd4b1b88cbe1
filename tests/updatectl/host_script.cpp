#include "updatectl/host_script.h"

#include <stdexcept>

#include "fixtures/file_content.h"
#include "fixtures/host_system.h"
#include "fixtures/patience.h"
#include "support/file_system.h"
#include "support/windows_api.h"

namespace updater {

namespace {

// A program of the host gives no process handle to wait for, so its last act is waited for.
void AwaitFile(const std::filesystem::path& file) {
    const ULONGLONG deadline = GetTickCount64() + kPatienceMilliseconds;
    while (!PathExists(file)) {
        if (GetTickCount64() > deadline) {
            throw std::runtime_error("The host's script does not end");
        }
        Sleep(5);
    }
}

}  // namespace

void RunHostScript(const std::filesystem::path& directory, const std::string& script) {
    const std::filesystem::path scriptFile = directory.parent_path() / L"host-script";
    const std::filesystem::path codeFile = directory.parent_path() / L"host-script.code";
    WriteFileContent(scriptFile, script);
    if (PathExists(codeFile)) {
        RemoveFile(codeFile);
    }
    if (!StartHostProgram(L"Z:\\bin\\bash",
                          L"bash -c \"bash -e ../host-script; echo $? > ../host-script.new; "
                          L"mv ../host-script.new ../host-script.code\"",
                          directory)) {
        throw std::runtime_error("There is no host to run a script");
    }
    AwaitFile(codeFile);
    if (ReadFileContent(codeFile) != "0\n") {
        throw std::runtime_error("The host's script failed");
    }
}

}  // namespace updater
