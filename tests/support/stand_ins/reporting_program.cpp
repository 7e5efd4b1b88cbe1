// reporting-program REPORT EXIT-CODE [ARGUMENT...]
//
// Writes into the file REPORT how it was started, in UTF-16, every item ended by a zero: whether it
// is "elevated" or "limited", its working directory, and its arguments after the exit code. Ends
// with the exit code. Started wrongly, it ends with 90, and with 91 when it could not write.

#include "support/process_utilities.h"
#include "support/windows_api.h"

// After the Windows types that they need.
#include <shellapi.h>

#include <fstream>
#include <string>
#include <vector>

#include "support/handle.h"
#include "support/number_text.h"

namespace updater {

namespace {

constexpr unsigned kUsageError = 90;
constexpr unsigned kWriteError = 91;
constexpr int kReportIndex = 1;
constexpr int kExitCodeIndex = 2;

std::wstring WorkingDirectory() {
    std::vector<wchar_t> text(GetCurrentDirectoryW(0, nullptr));
    GetCurrentDirectoryW(static_cast<DWORD>(text.size()), text.data());
    return text.data();
}

unsigned WriteReport(const std::wstring& file, const std::vector<std::wstring>& items) {
    std::ofstream stream(std::filesystem::path(file), std::ios::binary | std::ios::trunc);
    for (const std::wstring& item : items) {
        stream.write(reinterpret_cast<const char*>(item.c_str()),
                     static_cast<std::streamsize>((item.size() + 1) * sizeof(wchar_t)));
    }
    stream.close();
    return stream.good() ? 0 : kWriteError;
}

unsigned Report() {
    int count = 0;
    LPWSTR* const list = CommandLineToArgvW(GetCommandLineW(), &count);
    const UniqueLocalMemory ownedList(list);
    if (count <= kExitCodeIndex) {
        return kUsageError;
    }
    std::vector<std::wstring> items = {IsProcessElevated() ? L"elevated" : L"limited",
                                       WorkingDirectory()};
    items.insert(items.end(), list + kExitCodeIndex + 1, list + count);
    const unsigned failure = WriteReport(list[kReportIndex], items);
    return failure != 0 ? failure : ParseUnsigned32(list[kExitCodeIndex]);
}

}  // namespace

}  // namespace updater

int main() {
    // The exit code may be any 32-bit number, as a crash's is.
    ExitProcess(updater::Report());
}
