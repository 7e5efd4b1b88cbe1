#include "support/program_report.h"

#include <cstring>
#include <stdexcept>

#include "fixtures/file_content.h"
#include "support/argument_quoting.h"
#include "support/process_utilities.h"
#include "support/windows_api.h"

namespace updater {

std::filesystem::path StandInPath(const wchar_t* name) {
    const std::filesystem::path own = GetProcessImagePath(GetCurrentProcess());
    return own.parent_path() / name;
}

std::wstring ReportArguments(const std::filesystem::path& report, std::uint32_t exitCode) {
    return QuoteArgument(report.native()) + L' ' + std::to_wstring(exitCode);
}

ProgramReport ReadProgramReport(const std::filesystem::path& report) {
    const std::string bytes = ReadFileContent(report);
    std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), bytes.data(), text.size() * sizeof(wchar_t));

    std::vector<std::wstring> items;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = text.find(L'\0', begin);
        items.push_back(text.substr(begin, end - begin));
        begin = end == std::wstring::npos ? text.size() : end + 1;
    }
    if (items.size() < 2) {
        throw std::runtime_error("Incomplete program report");
    }
    return {items[0], items[1], {items.begin() + 2, items.end()}};
}

}  // namespace updater
