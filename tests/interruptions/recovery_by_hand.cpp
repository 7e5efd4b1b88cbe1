#include "interruptions/recovery_by_hand.h"

#include <fstream>
#include <stdexcept>
#include <utility>

#include "elevation/program_start.h"
#include "end_to_end/build_outputs.h"
#include "end_to_end/waiting.h"
#include "fixtures/application_names.h"
#include "fixtures/file_content.h"
#include "fixtures/host_system.h"
#include "fixtures/short_path.h"
#include "fixtures/temporary_directory.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

constexpr std::string_view kPrompt = "C:\\>";
constexpr wchar_t kPromptDirectory[] = L"C:\\";

// Where the reader of the page's lines is.
struct PagePosition {
    bool inSection = false;
    bool inConsole = false;
    bool notToBeRun = false;
};

void Advance(PagePosition& position, const std::string& line, const std::string& heading) {
    if (line.starts_with("## ")) {
        position.inSection = line == "## " + heading;
    } else if (line.starts_with("<!-- not run:")) {
        position.notToBeRun = true;
    } else if (line.starts_with("```")) {
        position.inConsole = line == "```console";
        position.notToBeRun = position.inConsole && position.notToBeRun;
    }
}

using ConsoleBlock = std::vector<std::wstring>;

std::vector<ConsoleBlock> ReadBlocks(const std::string& heading) {
    std::ifstream page(RecoveryPage(), std::ios::binary);
    std::vector<ConsoleBlock> blocks;
    PagePosition position;
    for (std::string line; std::getline(page, line);) {
        const bool wasInConsole = position.inConsole;
        Advance(position, line, heading);
        if (!position.inSection || !position.inConsole || position.notToBeRun) {
            continue;
        }
        if (!wasInConsole) {
            blocks.emplace_back();
        } else if (line.starts_with(kPrompt)) {
            blocks.back().push_back(Utf8ToWide(line.substr(kPrompt.size())));
        }
    }
    if (blocks.empty()) {
        throw std::runtime_error("The recovery page has no commands under \"" + heading + '"');
    }
    return blocks;
}

void ReplaceAll(std::wstring& text, std::wstring_view from, const std::wstring& to) {
    for (std::size_t at = text.find(from); at != std::wstring::npos;
         at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

// The xcopy of Wine 10 takes no path with a space, quoted or not. Windows' and Wine 8's do.
bool TakesShortNamesOnly(const std::wstring& command) {
    return command.starts_with(L"xcopy ") && WineRelease() >= 10;
}

std::wstring WithPlaces(std::wstring command, const RecoveryPlaces& places) {
    const bool isShort = TakesShortNamesOnly(command);
    ReplaceAll(command,
               L"C:\\ProgramData\\" IDENTITY_BASE_NAME L"-{0D5B2A6E-8C41-4E0B-9F37-52A1C6E4D913}",
               isShort ? ShortPath(places.staging) : places.staging.native());
    ReplaceAll(command, L"C:\\Program Files\\" IDENTITY_LOCAL_DIRECTORY,
               isShort ? ShortPath(places.installDirectory) : places.installDirectory.native());
    ReplaceAll(command, L"tool.exe", places.ownProgram);
    return command;
}

struct ConsoleResult {
    std::uint32_t exitCode = 0;
    std::string output;
};

// As one line for the command processor, which goes on with the next command unless one fails.
std::wstring AsOneLine(const ConsoleBlock& block, const RecoveryPlaces& places,
                       const std::filesystem::path& output) {
    std::wstring line;
    for (const std::wstring& command : block) {
        line += (line.empty() ? L"(" : L" && (") + WithPlaces(command, places) + L" >>\"" +
                output.native() + L"\" 2>&1)";
    }
    return line;
}

ConsoleResult RunInConsole(const ConsoleBlock& block, const RecoveryPlaces& places) {
    const TemporaryDirectory scratch;
    const std::filesystem::path output = scratch.path / L"output.txt";
    WriteFileContent(output, "");
    ProgramStart start;
    start.program = EnvironmentVariable(L"ComSpec");
    start.arguments = L"/d /s /c \"" + AsOneLine(block, places, output) + L'"';
    start.workingDirectory = kPromptDirectory;
    const StartedProgram started = StartProgram(start);
    const std::uint32_t exitCode = AwaitEnd(started.process.get(), "the recovery page's commands");
    return {exitCode, ReadFileContent(output)};
}

}  // namespace

std::vector<std::string> FollowRecoveryPage(const std::string& heading,
                                            const RecoveryPlaces& places) {
    std::vector<std::string> failures;
    for (const ConsoleBlock& block : ReadBlocks(heading)) {
        const ConsoleResult result = RunInConsole(block, places);
        if (result.exitCode != 0) {
            failures.push_back("The block that begins with " + WideToUtf8(block.front()) +
                               " ended with " + std::to_string(result.exitCode) + " and printed " +
                               result.output);
        }
    }
    return failures;
}

}  // namespace updater
