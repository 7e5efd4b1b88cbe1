// administrators-prompt PROGRAM [ARGUMENT...]
//
// Runs a program as an administrator's command prompt does: elevated, which its manifest asks for,
// and with the caller's input and output. Returns the program's exit code, 90 when it could not be
// started. Arguments are passed on without quotes.

#include <process.h>

#include <cstdint>
#include <iostream>

namespace {

constexpr int kUsageError = 2;
constexpr int kNotStarted = 90;

}  // namespace

int wmain(int count, wchar_t** tokens) {
    if (count < 2) {
        std::cerr << "usage: administrators-prompt PROGRAM [ARGUMENT...]\n";
        return kUsageError;
    }
    const std::intptr_t exitCode = _wspawnvp(_P_WAIT, tokens[1], tokens + 1);
    if (exitCode == -1) {
        std::cerr << "administrators-prompt: cannot start the program\n";
        return kNotStarted;
    }
    return static_cast<int>(exitCode);
}
