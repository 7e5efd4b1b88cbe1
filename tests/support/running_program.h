#pragma once

#include <cstdint>
#include <filesystem>

#include "support/handle.h"

namespace updater {

/// The waiting stand-in, copied to `executable` and running from there until the end of the scope;
/// the copy is deleted then. Raises `std::runtime_error` when it does not come up.
struct RunningProgram {
    explicit RunningProgram(std::filesystem::path executable);
    ~RunningProgram();
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    /// Ends the program and waits for its end; its process object lives on.
    void End() const;

    std::filesystem::path path;
    UniqueHandle process;
    std::uint32_t processId = 0;
};

}  // namespace updater
