#include "updatectl/tool_call.h"

#include <array>
#include <stdexcept>

#include "fixtures/built_path.h"
#include "fixtures/patience.h"
#include "support/argument_quoting.h"
#include "support/handle.h"
#include "support/process_utilities.h"
#include "support/windows_api.h"

namespace updater {

namespace {

struct Pipe {
    UniqueHandle readEnd;
    UniqueHandle writeEnd;
};

// So large that the tool never waits for it to be read.
Pipe MakePipe() {
    constexpr DWORD kBytes = 1U << 22U;
    SECURITY_ATTRIBUTES inheritable{sizeof(inheritable), nullptr, TRUE};
    HANDLE readEnd = nullptr;
    HANDLE writeEnd = nullptr;
    if (CreatePipe(&readEnd, &writeEnd, &inheritable, kBytes) == 0) {
        throw std::runtime_error("Cannot make a pipe");
    }
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    return {OwnHandle(readEnd), OwnHandle(writeEnd)};
}

std::string ReadToEnd(HANDLE pipe) {
    std::string text;
    std::array<char, 4096> buffer{};
    DWORD count = 0;
    while (ReadFile(pipe, buffer.data(), static_cast<DWORD>(buffer.size()), &count, nullptr) != 0 &&
           count > 0) {
        text.append(buffer.data(), count);
    }
    return text;
}

}  // namespace

std::filesystem::path ToolPath() {
    return BuiltPath(CORVELLAN_UPDATECTL);
}

std::filesystem::path Application1() {
    return BuiltPath(CORVELLAN_APPLICATION_1);
}

std::filesystem::path Application2() {
    return BuiltPath(CORVELLAN_APPLICATION_2);
}

std::uint32_t AwaitTool(HANDLE tool) {
    if (WaitForSingleObject(tool, kPatienceMilliseconds) != WAIT_OBJECT_0) {
        TerminateProcess(tool, 1);
        throw std::runtime_error("The tool does not end");
    }
    return AwaitExitCode(tool);
}

ToolResult CallTool(const std::vector<std::wstring>& arguments,
                    const std::filesystem::path& workingDirectory) {
    return CallToolAt(ToolPath(), arguments, workingDirectory);
}

ToolResult CallToolAt(const std::filesystem::path& tool, const std::vector<std::wstring>& arguments,
                      const std::filesystem::path& workingDirectory) {
    std::wstring commandLine = QuoteArgument(tool.native());
    for (const std::wstring& argument : arguments) {
        commandLine += L' ' + QuoteArgument(argument);
    }
    Pipe output = MakePipe();
    Pipe error = MakePipe();
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = output.writeEnd.get();
    startup.hStdError = error.writeEnd.get();
    PROCESS_INFORMATION started{};
    if (CreateProcessW(tool.c_str(), commandLine.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW,
                       nullptr, workingDirectory.empty() ? nullptr : workingDirectory.c_str(),
                       &startup, &started) == 0) {
        throw std::runtime_error("Cannot start the tool");
    }
    const UniqueHandle process = OwnHandle(started.hProcess);
    const UniqueHandle thread = OwnHandle(started.hThread);
    output.writeEnd.reset();
    error.writeEnd.reset();
    ToolResult result;
    result.exitCode = AwaitTool(process.get());
    result.output = ReadToEnd(output.readEnd.get());
    result.error = ReadToEnd(error.readEnd.get());
    return result;
}

}  // namespace updater
