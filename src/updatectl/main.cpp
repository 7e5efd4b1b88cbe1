#include "support/windows_api.h"

// After the Windows types that it needs.
#include <shellapi.h>

#include <string>
#include <vector>

#include "support/handle.h"
#include "updatectl/tool.h"

namespace {

// The runtime's own arguments are not used: with some toolchains it expands "*" in them, which is
// for the tool's own patterns.
std::vector<std::wstring> TokensAfterProgram() {
    int count = 0;
    LPWSTR* const list = CommandLineToArgvW(GetCommandLineW(), &count);
    const updater::UniqueLocalMemory ownedList(list);
    if (list == nullptr || count < 1) {
        return {};
    }
    return {list + 1, list + count};
}

}  // namespace

int wmain() {
    // An administrator may run the tool from a directory that others can write to: no library may
    // come from there.
    if (SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32) == 0) {
        return updater::kToolFailed;
    }
    return updater::RunTool(TokensAfterProgram());
}
