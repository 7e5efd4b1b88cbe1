#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "support/windows_api.h"

namespace updater {

/// The tool, and the application's versions 1.0.0.0 and 2.0.0.0, as the build made them.
std::filesystem::path ToolPath();
std::filesystem::path Application1();
std::filesystem::path Application2();

struct ToolResult {
    std::uint32_t exitCode = 0;
    std::string output;
    std::string error;
};

/// Waits for the tool's end and returns its exit code. Ends a tool that takes five minutes, and
/// raises `std::runtime_error`.
std::uint32_t AwaitTool(HANDLE tool);

/// Runs the tool to its end with its output in pipes. Raises `std::runtime_error` when it could not
/// be started.
ToolResult CallToolAt(const std::filesystem::path& tool, const std::vector<std::wstring>& arguments,
                      const std::filesystem::path& workingDirectory = {});

/// The same with the build's own tool.
ToolResult CallTool(const std::vector<std::wstring>& arguments,
                    const std::filesystem::path& workingDirectory = {});

}  // namespace updater
