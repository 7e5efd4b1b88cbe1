#pragma once

#include <string>
#include <vector>

#include "updatectl/tool_call.h"

namespace updater {

/// Runs the tool to its end with the user's limited token, without an administrator's rights. The
/// arguments may not hold what the command processor has a meaning for.
ToolResult CallToolLimited(const std::vector<std::wstring>& arguments);

}  // namespace updater
