#include "world/file_holder.h"

#include <array>
#include <stdexcept>

#include "fixtures/built_path.h"
#include "fixtures/named_event.h"
#include "fixtures/patience.h"
#include "support/argument_quoting.h"
#include "support/process_utilities.h"
#include "support/windows_api.h"

namespace updater {

namespace {

StandInProcess StartHolder(const std::filesystem::path& file, const std::wstring& eventBaseName) {
    const std::filesystem::path program = BuiltPath(CORVELLAN_HOLDING_PROGRAM);
    std::wstring commandLine = QuoteArgument(program.native()) + L' ' +
                               QuoteArgument(file.native()) + L' ' + eventBaseName + L"-begin " +
                               eventBaseName + L"-held " + eventBaseName + L"-end";
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    if (CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE,
                       CREATE_NO_WINDOW, nullptr, nullptr, &startup, &started) == 0) {
        throw std::runtime_error("Cannot start the holding program");
    }
    const UniqueHandle thread = OwnHandle(started.hThread);
    return {OwnHandle(started.hProcess), started.dwProcessId};
}

}  // namespace

FileHolder::FileHolder(const std::filesystem::path& file)
    : eventBaseName(L"Local\\FileHolder-" + CreateJobIdentity()),
      begin(CreateNamedEvent(eventBaseName + L"-begin")),
      held(CreateNamedEvent(eventBaseName + L"-held")),
      end(CreateNamedEvent(eventBaseName + L"-end")),
      holder(StartHolder(file, eventBaseName)) {}

// The waits are the real ones also where the time is simulated.

void FileHolder::Hold() const {
    SetEvent(begin.get());
    const std::array<HANDLE, 2> outcomes = {held.get(), holder.process.get()};
    if (WaitForMultipleObjectsEx(static_cast<DWORD>(outcomes.size()), outcomes.data(), FALSE,
                                 kPatienceMilliseconds, FALSE) != WAIT_OBJECT_0) {
        throw std::runtime_error("The holding program does not hold the file");
    }
}

void FileHolder::Release() const {
    SetEvent(end.get());
    if (WaitForSingleObjectEx(holder.process.get(), kPatienceMilliseconds, FALSE) !=
        WAIT_OBJECT_0) {
        throw std::runtime_error("The holding program does not release the file");
    }
}

}  // namespace updater
