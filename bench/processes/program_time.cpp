// program-time PROGRAM [ARGUMENTS]
//
// Prints how many seconds a program takes from its start to its end; it must end with 0. ARGUMENTS
// is the text of its command line after the program.

#include <stdexcept>

#include "elevation/program_start.h"
#include "program_main.h"
#include "stopwatch.h"
#include "support/process_utilities.h"

namespace bench {

namespace {

void Run(std::span<wchar_t*> arguments) {
    const std::int64_t begin = CounterNow();
    const updater::StartedProgram started = updater::StartProgram({arguments[0], arguments[1]});
    const std::uint32_t exitCode = updater::AwaitExitCode(started.process.get());
    const double seconds = SecondsSince(begin);
    if (exitCode != 0) {
        throw std::runtime_error("The program ended with " + std::to_string(exitCode));
    }
    PrintNumbers({seconds});
}

}  // namespace

}  // namespace bench

int wmain(int count, wchar_t** tokens) {
    return bench::RunProgram({tokens, static_cast<std::size_t>(count)}, 2,
                             "program-time PROGRAM ARGUMENTS", bench::Run);
}
