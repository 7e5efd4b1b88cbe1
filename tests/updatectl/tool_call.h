#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "fixtures/release_tool.h"

namespace updater {

/// The tool, and the application's versions 1.0.0.0 and 2.0.0.0, as the build made them.
std::filesystem::path ToolPath();
std::filesystem::path Application1();
std::filesystem::path Application2();

/// Runs the build's own tool to its end, as `CallToolAt` does.
ToolResult CallTool(const std::vector<std::wstring>& arguments,
                    const std::filesystem::path& workingDirectory = {});

}  // namespace updater
