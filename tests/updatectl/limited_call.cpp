#include "updatectl/limited_call.h"

#include "elevation/program_start.h"
#include "fixtures/file_content.h"
#include "fixtures/temporary_directory.h"
#include "support/argument_quoting.h"

namespace updater {

ToolResult CallToolLimited(const std::vector<std::wstring>& arguments) {
    const TemporaryDirectory temporary;
    std::wstring command = QuoteArgument(ToolPath().native());
    for (const std::wstring& argument : arguments) {
        command += L' ' + QuoteArgument(argument);
    }
    // A program with another token inherits no pipes; the command processor makes files.
    const StartedProgram shell =
        StartProgram({.program = EnvironmentVariable(L"ComSpec"),
                      .arguments = L"/s /c \"" + command + L" >output 2>error\"",
                      .workingDirectory = temporary.path,
                      .token = StartToken::Limited});
    ToolResult result;
    result.exitCode = AwaitTool(shell.process.get());
    result.output = ReadFileContent(temporary.path / L"output");
    result.error = ReadFileContent(temporary.path / L"error");
    return result;
}

}  // namespace updater
