#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>

namespace updater {

/// Returns the line that says how far the work is: "Reading files: 3 of 10, 2 s". Without a total
/// only the time is told.
std::string ProgressText(const std::string& action, std::size_t done, std::size_t total,
                         long long seconds);

/// For as long as it exists, tells how far the work is: on a line of its own from the first second
/// on, if standard output is a terminal. Its end clears the line.
struct ProgressLine {
    explicit ProgressLine(const char* action);

    std::atomic<std::size_t> done = 0;
    /// 0 while it is not known.
    std::atomic<std::size_t> total = 0;

    /// Writes the line, since the work itself may stay in one call for long. The last member,
    /// because it uses the others to its end.
    std::jthread writer;
};

}  // namespace updater
