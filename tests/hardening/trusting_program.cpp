// trusting-program NAME...
//
// Loads libraries as a program does that takes no care: one at its start, because it imports from
// it, and each of the named ones. Returns how many of those it could not load.

#include "support/windows_api.h"

#include <cwchar>

int wmain(int count, wchar_t** arguments) {
    int failures = static_cast<int>(GetFileVersionInfoSizeW(L"", nullptr));
    for (int index = 1; index < count; ++index) {
        const HMODULE library = LoadLibraryW(arguments[index]);
        failures += library == nullptr ? 1 : 0;
    }
    return failures;
}
