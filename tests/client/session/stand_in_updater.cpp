// Stands in for the updater: says in its job directory how it was started, then does what the test
// puts there step by step, in files "step-1", "step-2" ... A step is "record", "text" or "exit"
// and, on lines of their own, a state, a message and a number, a text, or an exit code. What is
// done has a file "done-1" ... It ends with its parent.

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/number_text.h"
#include "support/status_file.h"
#include "support/text_conversion.h"
#include "support/updater_arguments.h"
#include "support/windows_api.h"

namespace updater {
namespace {

std::string ValueOf(const std::vector<std::wstring>& arguments, std::wstring_view option) {
    for (std::size_t index = 0; index + 1 < arguments.size(); ++index) {
        if (arguments[index] == option) {
            return WideToUtf8(arguments[index + 1]);
        }
    }
    return {};
}

std::vector<std::string> LinesOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    lines.resize(4);
    return lines;
}

void WriteText(const std::filesystem::path& file, const std::string& text) {
    std::filesystem::path draft = file;
    draft += L".draft";
    std::ofstream(draft, std::ios::binary) << text;
    std::filesystem::rename(draft, file);
}

void TellStart(const std::filesystem::path& jobDirectory,
               const std::vector<std::wstring>& arguments) {
    std::string text = WideToUtf8(std::filesystem::current_path().native()) + '\n';
    for (const std::wstring& argument : arguments) {
        text += WideToUtf8(argument) + '\n';
    }
    WriteText(jobDirectory / L"started", text);
}

void TakeStep(const std::filesystem::path& jobDirectory, const std::vector<std::string>& lines) {
    if (lines[0] == "record") {
        WriteUpdateStatus(jobDirectory, lines[1], lines[2], std::stoi(lines[3]));
    } else if (lines[0] == "text") {
        WriteText(jobDirectory / kStatusFile, lines[1]);
    }
}

int Run(const std::vector<std::wstring>& arguments) {
    const std::filesystem::path jobDirectory = Utf8ToWide(ValueOf(arguments, kJobDirOption));
    HANDLE parent = OpenProcess(SYNCHRONIZE, FALSE,
                                ParseUnsigned32(Utf8ToWide(ValueOf(arguments, kParentPidOption))));
    TellStart(jobDirectory, arguments);
    int step = 1;
    while (WaitForSingleObject(parent, 5) == WAIT_TIMEOUT) {
        const std::wstring number = std::to_wstring(step);
        // Who gives a file its name has it open for a moment longer, and lets nobody read it.
        const std::vector<std::string> lines = LinesOf(jobDirectory / (L"step-" + number));
        if (lines[0].empty()) {
            continue;
        }
        TakeStep(jobDirectory, lines);
        WriteText(jobDirectory / (L"done-" + number), "");
        if (lines[0] == "exit") {
            return std::stoi(lines[1]);
        }
        ++step;
    }
    return 0;
}

}  // namespace
}  // namespace updater

int wmain(int count, wchar_t** arguments) {
    return updater::Run({arguments + 1, arguments + count});
}
