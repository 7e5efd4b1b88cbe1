#pragma once

#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

// What a program that the updater started saw of its start. The program writes it down, and the
// test reads it.

namespace updater {

/// The environment variable that names the directory of the reports.
inline constexpr wchar_t kStartReportsVariable[] = L"CORVELLAN_START_REPORTS";

struct StartReport {
    std::filesystem::path image;
    std::filesystem::path workingDirectory;
    std::wstring commandLine;
    std::uint32_t parentProcessId = 0;
    bool elevated = false;
    /// Each variable as NAME=VALUE.
    std::set<std::wstring> environment;
};

/// Returns this process's variables, without the hidden ones that hold a drive's directory.
std::set<std::wstring> OwnEnvironment();

/// Writes how this process was started into a file named after its image, and signals every event
/// that `ListHandleNumbers` listed, as far as the number is a handle in this process.
void ReportOwnStart();

/// Writes down handles by their numbers in another process, for the programs that it starts.
void ListHandleNumbers(const std::filesystem::path& reports,
                       const std::vector<std::uintptr_t>& numbers);

/// Returns where the program of this file name reports.
std::filesystem::path StartReportFile(const std::filesystem::path& reports,
                                      const std::wstring& imageName);

/// Raises `std::runtime_error` when the file is missing or is no report.
StartReport ReadStartReport(const std::filesystem::path& file);

}  // namespace updater
