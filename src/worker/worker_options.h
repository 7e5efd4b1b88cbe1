#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "support/updater_arguments.h"

namespace updater {

struct WorkerOptions {
    /// The downloaded setup program, as given.
    std::filesystem::path setupProgram;
    /// Canonical.
    std::filesystem::path installDirectory;
    /// As given.
    std::filesystem::path jobDirectory;
    std::wstring version;
    /// 64 lower-case hexadecimal characters; compared exactly.
    std::string sha256;
    /// In bytes.
    std::uint64_t size = 0;
    std::uint32_t parentProcessId = 0;
};

/// Reads the options that describe the update. Raises `std::runtime_error` "Missing update
/// argument" for a missing or empty one, the number conversions' errors, and
/// `std::filesystem::filesystem_error`, operation "canonical", when the installation directory does
/// not exist.
WorkerOptions ReadWorkerOptions(const UpdaterArguments& arguments);

}  // namespace updater
