#include "app/command_line.h"

#include "support/windows_api.h"

// After the Windows types that they need.
#include <shellapi.h>

#include <string_view>
#include <vector>

#include "support/handle.h"

namespace updater {

UpdaterArguments ParseUpdaterArguments() {
    int count = 0;
    LPWSTR* const list = CommandLineToArgvW(GetCommandLineW(), &count);
    const UniqueLocalMemory ownedList(list);
    if (list == nullptr) {
        return {};
    }
    const std::vector<std::wstring_view> tokens(list, list + count);
    return ArgumentsFromTokens(tokens);
}

}  // namespace updater
