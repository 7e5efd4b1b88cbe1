#include "hardening/start_report.h"

#include "support/windows_api.h"

// After the Windows types that they need.
#include <tlhelp32.h>

#include <fstream>
#include <memory>
#include <stdexcept>

#include "elevation/program_start.h"
#include "fixtures/file_content.h"
#include "support/handle.h"
#include "support/process_utilities.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

constexpr wchar_t kHandleNumbers[] = L"handle-numbers";

struct EnvironmentReleaser {
    using pointer = LPWCH;
    void operator()(LPWCH block) const noexcept { FreeEnvironmentStringsW(block); }
};

std::uint32_t ParentProcessId() {
    const UniqueHandle snapshot = OwnHandle(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL found = Process32FirstW(snapshot.get(), &entry); found != 0;
         found = Process32NextW(snapshot.get(), &entry)) {
        if (entry.th32ProcessID == GetCurrentProcessId()) {
            return entry.th32ParentProcessID;
        }
    }
    return 0;
}

std::wstring OwnWorkingDirectory() {
    std::wstring directory(GetCurrentDirectoryW(0, nullptr), L'\0');
    directory.resize(GetCurrentDirectoryW(static_cast<DWORD>(directory.size()), directory.data()));
    return directory;
}

void SignalListedHandles(const std::filesystem::path& reports) {
    std::ifstream file(reports / kHandleNumbers);
    for (std::uintptr_t number = 0; file >> number;) {
        SetEvent(reinterpret_cast<HANDLE>(number));
    }
}

// The items of a report, each ended by a zero byte.
std::vector<std::wstring> SplitReport(const std::string& content) {
    std::vector<std::wstring> items;
    for (std::size_t begin = 0; begin < content.size();) {
        const std::size_t end = content.find('\0', begin);
        items.push_back(Utf8ToWide(content.substr(begin, end - begin)));
        begin = end == std::string::npos ? content.size() : end + 1;
    }
    return items;
}

}  // namespace

std::set<std::wstring> OwnEnvironment() {
    const std::unique_ptr<wchar_t, EnvironmentReleaser> block(GetEnvironmentStringsW());
    std::set<std::wstring> variables;
    for (const wchar_t* next = block.get(); *next != L'\0';) {
        const std::wstring variable = next;
        next += variable.size() + 1;
        if (!variable.starts_with(L'=')) {
            variables.insert(variable);
        }
    }
    return variables;
}

void ReportOwnStart() {
    const std::filesystem::path reports = EnvironmentVariable(kStartReportsVariable);
    const std::filesystem::path image = GetProcessImagePath(GetCurrentProcess());
    std::vector<std::wstring> items = {image.native(), OwnWorkingDirectory(), GetCommandLineW(),
                                       std::to_wstring(ParentProcessId()),
                                       IsProcessElevated() ? L"elevated" : L"limited"};
    const std::set<std::wstring> environment = OwnEnvironment();
    items.insert(items.end(), environment.begin(), environment.end());
    std::string content;
    for (const std::wstring& item : items) {
        content += WideToUtf8(item) + '\0';
    }
    SignalListedHandles(reports);
    // Whoever waits for the report finds it complete.
    const std::filesystem::path file = StartReportFile(reports, image.filename().native());
    const std::filesystem::path unfinished = file.native() + L".unfinished";
    WriteFileContent(unfinished, content);
    MoveFileExW(unfinished.c_str(), file.c_str(), MOVEFILE_REPLACE_EXISTING);
}

void ListHandleNumbers(const std::filesystem::path& reports,
                       const std::vector<std::uintptr_t>& numbers) {
    std::string content;
    for (const std::uintptr_t number : numbers) {
        content += std::to_string(number) + '\n';
    }
    WriteFileContent(reports / kHandleNumbers, content);
}

std::filesystem::path StartReportFile(const std::filesystem::path& reports,
                                      const std::wstring& imageName) {
    return reports / (imageName + L".start");
}

StartReport ReadStartReport(const std::filesystem::path& file) {
    const std::vector<std::wstring> items = SplitReport(ReadFileContent(file));
    constexpr std::size_t kFixedItems = 5;
    if (items.size() < kFixedItems) {
        throw std::runtime_error("A program's report of its start is incomplete");
    }
    return {items[0],
            items[1],
            items[2],
            static_cast<std::uint32_t>(std::stoul(items[3])),
            items[4] == L"elevated",
            {items.begin() + kFixedItems, items.end()}};
}

}  // namespace updater
