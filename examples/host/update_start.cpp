#include "update_start.h"

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "names.h"

namespace corvellan {

namespace {

// Backslashes count as escapes only in front of a double quote, so a run of them is doubled there:
// without that, a directory's trailing backslash would swallow the closing quote and the options
// that follow.
std::wstring QuoteArgument(std::wstring_view argument) {
    std::wstring quoted = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t character : argument) {
        if (character == L'"') {
            quoted.append(backslashes + 1, L'\\');
        }
        quoted += character;
        backslashes = character == L'\\' ? backslashes + 1 : 0;
    }
    return quoted.append(backslashes, L'\\').append(L"\"");
}

std::wstring BuildCommandLine(const std::filesystem::path& updater, const Application& application,
                              const UpdateOffer& offer, const std::filesystem::path& jobDirectory) {
    const std::array<std::pair<const wchar_t*, std::wstring>, 7> options{{
        {L"--install-dir", application.installDirectory.native()},
        {L"--job-dir", jobDirectory.native()},
        {L"--parent-pid", std::to_wstring(GetCurrentProcessId())},
        {L"--installer", offer.setup.native()},
        {L"--version", offer.version},
        {L"--size", std::to_wstring(offer.size)},
        {L"--sha256", offer.sha256},
    }};
    std::wstring commandLine = QuoteArgument(updater.native()) + L" --broker";
    for (const auto& [name, value] : options) {
        commandLine.append(L" ").append(name).append(L" ").append(QuoteArgument(value));
    }
    return commandLine;
}

std::filesystem::path CopyUpdater(const Application& application,
                                  const std::filesystem::path& jobDirectory) {
    const std::wstring other = ReadEnvironment(L"CORVELLAN_UPDATER");
    const std::filesystem::path source = other.empty()
                                             ? application.installDirectory / kUpdaterExecutable
                                             : std::filesystem::path(other);
    std::filesystem::path copy = jobDirectory / kUpdaterExecutable;
    std::filesystem::copy_file(source, copy);
    return copy;
}

}  // namespace

UniqueHandle StartUpdater(const Application& application, const UpdateOffer& offer,
                          const std::filesystem::path& jobDirectory) {
    const std::filesystem::path updater = CopyUpdater(application, jobDirectory);
    std::wstring commandLine = BuildCommandLine(updater, application, offer, jobDirectory);
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    // A working directory in the installation directory would be in the setup program's way.
    if (CreateProcessW(updater.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr,
                       jobDirectory.c_str(), &startup, &started) == 0) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(),
                                "Cannot start the updater");
    }
    const UniqueHandle thread(started.hThread);
    UniqueHandle process(started.hProcess);
    // Otherwise the prompt may only flash in the taskbar.
    AllowSetForegroundWindow(started.dwProcessId);
    return process;
}

}  // namespace corvellan
