#include "inputs/system_splitting.h"

#include "support/windows_api.h"

// After the Windows types that they need.
#include <shellapi.h>

#include <stdexcept>

#include "support/argument_quoting.h"
#include "support/handle.h"

namespace updater {

std::vector<std::wstring> SplitBySystem(const std::wstring& commandLine) {
    int count = 0;
    LPWSTR* const list = CommandLineToArgvW(commandLine.c_str(), &count);
    const UniqueLocalMemory ownedList(list);
    if (list == nullptr) {
        throw std::runtime_error("The system cannot split the command line");
    }
    return {list, list + count};
}

std::wstring JoinQuoted(const std::vector<std::wstring>& arguments) {
    std::wstring joined;
    for (const std::wstring& argument : arguments) {
        joined += L' ' + QuoteArgument(argument);
    }
    return joined;
}

}  // namespace updater
