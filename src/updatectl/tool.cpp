#include "updatectl/tool.h"

#include <algorithm>
#include <array>
#include <exception>

#include "updatectl/command_options.h"
#include "updatectl/output.h"

namespace updater {

namespace {

constexpr char kHelp[] =
    R"(Usage: corvellan-updatectl COMMAND [OPTIONS]

Makes and checks the data of a release that the Corvellan Updater installs, and helps out on a
user's machine after an interrupted update.

Commands for a release:
  inventory   writes the list of the program's files by which an installation is checked
  verify      checks a program against its list
  describe    prints a release's data for the update feed
Commands for a user's machine, which need an administrator's rights:
  restore     puts the previous program back after an interrupted update
  clean       removes the directories that earlier updates left

  COMMAND --help   explains a command
  --version        shows the tool's version

Exit codes: 0 done; 1 the check failed or the work could not be done; 2 wrong usage.
)";

constexpr std::wstring_view kHelpFlag = L"--help";

constexpr std::array<const ToolCommand*, 5> kCommands = {
    &kInventoryCommand, &kVerifyCommand, &kDescribeCommand, &kRestoreCommand, &kCleanCommand};

int RunCommand(std::span<const std::wstring> tokens) {
    if (tokens.empty()) {
        throw UsageError("COMMAND is missing");
    }
    const std::wstring& name = tokens.front();
    if (name == kHelpFlag) {
        PrintOutput(kHelp);
        return kToolDone;
    }
    if (name == L"--version") {
        PrintOutput("corvellan-updatectl " CORVELLAN_VERSION "\n");
        return kToolDone;
    }
    for (const ToolCommand* command : kCommands) {
        if (name != command->name) {
            continue;
        }
        if (std::ranges::find(tokens, kHelpFlag) != tokens.end()) {
            PrintOutput(command->help);
            return kToolDone;
        }
        return command->run(tokens.subspan(1));
    }
    throw UsageError(PrintableText(name) + " is not a command");
}

}  // namespace

int RunTool(std::span<const std::wstring> tokens) {
    try {
        return RunCommand(tokens);
    } catch (const UsageError& failure) {
        PrintError(std::string("corvellan-updatectl: ") + failure.what() +
                   "\nWith --help it explains itself; with a command and --help, the command.\n");
        return kToolWrongUsage;
    } catch (const std::exception& failure) {
        PrintError(std::string("corvellan-updatectl: ") + failure.what() + "\n");
        return kToolFailed;
    }
}

}  // namespace updater
