#include "support/argument_quoting.h"

#include <cstddef>

namespace updater {

std::wstring QuoteArgument(std::wstring_view argument) {
    // Backslashes are literal unless a run of them ends at a double quote; then each must be
    // doubled. So a run is held back until the character after it is known.
    std::wstring quoted(1, L'"');
    std::size_t pendingBackslashes = 0;
    for (const wchar_t character : argument) {
        if (character == L'\\') {
            ++pendingBackslashes;
            continue;
        }
        if (character == L'"') {
            quoted.append(2 * pendingBackslashes + 1, L'\\');
        } else {
            quoted.append(pendingBackslashes, L'\\');
        }
        quoted.push_back(character);
        pendingBackslashes = 0;
    }
    quoted.append(2 * pendingBackslashes, L'\\');
    quoted.push_back(L'"');
    return quoted;
}

}  // namespace updater
