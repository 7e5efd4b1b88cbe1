#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace updater {

/// How the reporting stand-in says that it was started.
struct ProgramReport {
    std::wstring elevation;
    std::wstring workingDirectory;
    std::vector<std::wstring> arguments;
};

/// Returns the path of a program that was built beside the test program.
std::filesystem::path StandInPath(const wchar_t* name);

/// Returns the reporting stand-in's first arguments, to which a test appends those to report.
std::wstring ReportArguments(const std::filesystem::path& report, std::uint32_t exitCode);

/// Reads a report. Raises `std::runtime_error` when it is missing or incomplete.
ProgramReport ReadProgramReport(const std::filesystem::path& report);

}  // namespace updater
