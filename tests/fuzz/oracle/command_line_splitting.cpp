#include "fuzz/oracle/command_line_splitting.h"

#include <algorithm>
#include <cstddef>

namespace updater {

namespace {

constexpr wchar_t kBlanks[] = L" \t";

bool IsBlank(wchar_t character) {
    return character == L' ' || character == L'\t';
}

// Takes the argument that begins the rest, and leaves what follows it.
std::wstring TakeArgument(std::wstring_view& rest) {
    std::wstring argument;
    bool quoted = false;
    while (!rest.empty() && (quoted || !IsBlank(rest.front()))) {
        const std::size_t backslashes = std::min(rest.find_first_not_of(L'\\'), rest.size());
        rest.remove_prefix(backslashes);
        if (rest.starts_with(L'"')) {
            argument.append(backslashes / 2, L'\\');
            if (backslashes % 2 == 1) {
                argument.push_back(L'"');
            } else {
                quoted = !quoted;
            }
            rest.remove_prefix(1);
            continue;
        }
        argument.append(backslashes, L'\\');
        if (backslashes == 0) {
            argument.push_back(rest.front());
            rest.remove_prefix(1);
        }
    }
    return argument;
}

}  // namespace

std::vector<std::wstring> SplitArguments(std::wstring_view commandLine) {
    std::vector<std::wstring> arguments;
    std::wstring_view rest = commandLine;
    for (;;) {
        rest.remove_prefix(std::min(rest.find_first_not_of(kBlanks), rest.size()));
        if (rest.empty()) {
            return arguments;
        }
        arguments.push_back(TakeArgument(rest));
    }
}

}  // namespace updater
