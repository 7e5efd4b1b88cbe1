#pragma once

#include <exception>
#include <iomanip>
#include <iostream>
#include <span>

namespace bench {

/// Prints the numbers as one line with tabs between them, in millionths.
inline void PrintNumbers(std::initializer_list<double> numbers) {
    const char* separator = "";
    for (const double number : numbers) {
        std::cout << separator << std::fixed << std::setprecision(6) << number;
        separator = "\t";
    }
    std::cout << '\n' << std::flush;
}

/// Runs a program of the benchmark with its arguments, of which it needs `wanted`. Returns its exit
/// code, 1 for a failure, which is printed.
template <typename Run>
int RunProgram(std::span<wchar_t*> tokens, std::size_t wanted, const char* usage, Run run) {
    const std::span<wchar_t*> arguments = tokens.subspan(1);
    if (arguments.size() != wanted) {
        std::cerr << "usage: " << usage << '\n';
        return 1;
    }
    try {
        run(arguments);
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}

}  // namespace bench
