// start-limited [--wait] PROGRAM [ARGUMENT...]
//
// Starts a program with the user's limited token and prints its process id. Returns 0, with --wait
// the program's exit code; 90 when the program could not be started.

#include <cwchar>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>

#include "elevation/program_start.h"
#include "support/argument_quoting.h"
#include "support/process_utilities.h"

namespace updater {

namespace {

constexpr int kUsageError = 2;
constexpr int kNotStarted = 90;

int StartLimited(int count, wchar_t** tokens) {
    int index = 1;
    const bool wait = count > index && std::wstring_view(tokens[index]) == L"--wait";
    index += wait ? 1 : 0;
    if (count <= index) {
        std::cerr << "usage: start-limited [--wait] PROGRAM [ARGUMENT...]\n";
        return kUsageError;
    }
    ProgramStart start;
    start.program = tokens[index];
    start.token = StartToken::Limited;
    for (++index; index < count; ++index) {
        start.arguments += (start.arguments.empty() ? L"" : L" ") + QuoteArgument(tokens[index]);
    }
    const StartedProgram started = StartProgram(start);
    std::cout << started.processId << std::endl;
    return wait ? static_cast<int>(AwaitExitCode(started.process.get())) : 0;
}

}  // namespace

}  // namespace updater

int wmain(int count, wchar_t** tokens) {
    try {
        return updater::StartLimited(count, tokens);
    } catch (const std::exception& failure) {
        std::cerr << "start-limited: " << failure.what() << '\n';
        return updater::kNotStarted;
    }
}
