#include "updatectl/tool.h"

#include <algorithm>
#include <array>
#include <exception>
#include <string>
#include <utility>

#include "support/application_identity.h"
#include "support/text_conversion.h"
#include "updatectl/command_options.h"
#include "updatectl/output.h"

namespace updater {

namespace {

constexpr char kHelp[] =
    R"(Usage: <tool> COMMAND [OPTIONS]

Makes and checks the data of a release that the <updater> installs, and helps out on a
user's machine after an interrupted update.

Commands for a release:
  inventory   writes the list of the program's files by which an installation is checked
  verify      checks a program against its list
  describe    prints a release's data for the update feed
  publish     makes a release's update feed, which you sign in between
  feed        verifies an update feed and shows what it says
Commands for a user's machine, which need an administrator's rights:
  restore     puts the previous program back after an interrupted update
  clean       removes the directories that earlier updates left

  COMMAND --help   explains a command
  --version        shows the tool's version

Exit codes: 0 done; 1 the check failed or the work could not be done; 2 wrong usage.
)";

constexpr std::wstring_view kHelpFlag = L"--help";

constexpr std::array<const ToolCommand*, 7> kCommands = {
    &kInventoryCommand, &kVerifyCommand,  &kDescribeCommand, &kPublishCommand,
    &kFeedCommand,      &kRestoreCommand, &kCleanCommand};

// Returns the help with the application's own names in the places that it leaves for them.
std::string WithNames(std::string_view help) {
    std::string text(help);
    for (const auto& [place, name] :
         {std::pair<std::string_view, std::string>("<tool>", kReleaseTool),
          {"<updater>", kUpdaterDescription},
          {"<staging>", WideToUtf8(kStagingPrefix)},
          {"<executable>", kExecutableWord}}) {
        for (std::size_t at = text.find(place); at != std::string::npos;
             at = text.find(place, at + name.size())) {
            text.replace(at, place.size(), name);
        }
    }
    return text;
}

// Returns null for a name that is no command's.
const ToolCommand* FindCommand(std::wstring_view name) {
    const auto* const found = std::ranges::find(kCommands, name, &ToolCommand::name);
    return found == kCommands.end() ? nullptr : *found;
}

// What to type next, after a wrong command line.
std::string HelpHint(std::span<const std::wstring> tokens) {
    const bool known = !tokens.empty() && FindCommand(tokens.front()) != nullptr;
    return std::string("Try '") + kReleaseTool + ' ' +
           (known ? WideToUtf8(tokens.front()) + ' ' : std::string()) + "--help'.\n";
}

int RunCommand(std::span<const std::wstring> tokens) {
    if (tokens.empty()) {
        throw UsageError("COMMAND is missing");
    }
    const std::wstring& name = tokens.front();
    if (name == kHelpFlag) {
        PrintOutput(WithNames(kHelp));
        return kToolDone;
    }
    if (name == L"--version") {
        PrintOutput(std::string(kReleaseTool) + " " CORVELLAN_VERSION "\n");
        return kToolDone;
    }
    const ToolCommand* const command = FindCommand(name);
    if (command == nullptr) {
        throw UsageError(PrintableText(name) + " is not a command");
    }
    if (std::ranges::find(tokens, kHelpFlag) != tokens.end()) {
        PrintOutput(WithNames(command->help));
        return kToolDone;
    }
    return command->run(tokens.subspan(1));
}

}  // namespace

int RunTool(std::span<const std::wstring> tokens) {
    try {
        return RunCommand(tokens);
    } catch (const UsageError& failure) {
        PrintError(std::string(kReleaseTool) + ": " + failure.what() + "\n" + HelpHint(tokens));
        return kToolWrongUsage;
    } catch (const std::exception& failure) {
        PrintError(std::string(kReleaseTool) + ": " + failure.what() + "\n");
        return kToolFailed;
    }
}

}  // namespace updater
