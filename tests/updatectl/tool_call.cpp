#include "updatectl/tool_call.h"

#include "fixtures/built_path.h"

namespace updater {

std::filesystem::path ToolPath() {
    return BuiltPath(CORVELLAN_UPDATECTL);
}

std::filesystem::path Application1() {
    return BuiltPath(CORVELLAN_APPLICATION_1);
}

std::filesystem::path Application2() {
    return BuiltPath(CORVELLAN_APPLICATION_2);
}

ToolResult CallTool(const std::vector<std::wstring>& arguments,
                    const std::filesystem::path& workingDirectory) {
    return CallToolAt(ToolPath(), arguments, workingDirectory);
}

}  // namespace updater
