#pragma once

#include <span>
#include <string>
#include <string_view>

namespace updater {

/// Process exit codes of the tool. Scripts depend on the values.
enum ToolExit : int {
    kToolDone = 0,
    /// The check failed, or the work could not be done.
    kToolFailed = 1,
    kToolWrongUsage = 2,
};

/// One of the tool's commands. `run` gets the tokens after the command's name and returns the
/// process exit code; it raises `UsageError` for a wrong command line, and any other standard
/// exception when the work could not be done. Four places in `help` are for the application's own
/// names: <tool>, <updater>, <staging> (how staging directories begin) and <executable>.
struct ToolCommand {
    std::wstring_view name;
    std::string_view help;
    int (*run)(std::span<const std::wstring> tokens);
};

extern const ToolCommand kInventoryCommand;
extern const ToolCommand kVerifyCommand;
extern const ToolCommand kDescribeCommand;
extern const ToolCommand kPublishCommand;
extern const ToolCommand kFeedCommand;
extern const ToolCommand kRestoreCommand;
extern const ToolCommand kCleanCommand;

/// Runs the tool with the tokens after the program's name and returns the process exit code.
/// Results go to standard output, failures to standard error.
int RunTool(std::span<const std::wstring> tokens);

}  // namespace updater
