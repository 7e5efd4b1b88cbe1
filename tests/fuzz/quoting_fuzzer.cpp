// The input is a list of arguments, separated by zero bytes.

#include <string>

#include "fuzz/fuzz_input.h"
#include "fuzz/oracle/command_line_splitting.h"
#include "fuzz/property.h"
#include "support/argument_quoting.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<std::wstring> arguments =
        updater::PiecesOfText(updater::TextOfInput(data, size));
    std::wstring commandLine;
    for (const std::wstring& argument : arguments) {
        const std::wstring quoted = updater::QuoteArgument(argument);
        updater::Require(quoted.size() >= argument.size() + 2 && quoted.starts_with(L'"') &&
                             quoted.ends_with(L'"'),
                         "an argument always stands in quotes");
        updater::Require(updater::SplitArguments(quoted) == std::vector{argument},
                         "an argument comes back unchanged");
        commandLine += quoted + L' ';
    }
    updater::Require(updater::SplitArguments(commandLine) == arguments,
                     "arguments come back unchanged side by side");
    return 0;
}
