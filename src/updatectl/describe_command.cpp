#include <filesystem>

#include "updatectl/command_options.h"
#include "updatectl/file_access.h"
#include "updatectl/json_text.h"
#include "updatectl/output.h"
#include "updatectl/progress_line.h"
#include "updatectl/tool.h"

namespace updater {

namespace {

constexpr char kHelp[] =
    R"(Usage: <tool> describe SETUP --app <executable>

Prints what the application's update feed says about a release, as JSON: "version", as the updater
reads it from the application's executable; "size" in bytes and "sha256" of the setup program,
which the updater checks before it runs it; and "setup", the setup program's file name.

  --app <executable>   the executable that SETUP installs
)";

constexpr std::string_view kOperands[] = {"SETUP"};
constexpr std::wstring_view kAppOption = L"--app";

int RunDescribe(std::span<const std::wstring> tokens) {
    const CommandOptions options = ReadCommandOptions(tokens, {}, {kAppOption});
    RequireOperands(options, kOperands);
    const std::filesystem::path setup = options.operands.front();
    const std::filesystem::path application = OnlyValue(options, kAppOption);

    [[maybe_unused]] const ProgressLine progress("Reading the setup program");
    const std::wstring version = VersionOf(application);
    const FileFacts facts = FactsOf(setup);
    PrintOutput(JsonObject({{"version", JsonString(version)},
                            {"size", std::to_string(facts.size)},
                            {"sha256", JsonString(facts.sha256)},
                            {"setup", JsonString(setup.filename().native())}}) +
                "\n");
    return kToolDone;
}

}  // namespace

const ToolCommand kDescribeCommand = {L"describe", kHelp, RunDescribe};

}  // namespace updater
