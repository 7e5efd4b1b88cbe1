#include "end_to_end/waiting.h"

#include <chrono>

#include "elevation/program_start.h"
#include "fixtures/patience.h"
#include "support/process_utilities.h"

namespace updater {

namespace {

constexpr DWORD kPollingInterval = 5;

[[noreturn]] void RaiseTimeOut(const std::string& awaited) {
    throw TimeOut("Waited " + std::to_string(kPatience.count()) + " min in vain for " + awaited);
}

bool EndsWithin(HANDLE process, DWORD milliseconds) {
    const DWORD result = WaitForSingleObject(process, milliseconds);
    if (result == WAIT_FAILED) {
        RaiseLastError("Cannot wait for a process");
    }
    return result == WAIT_OBJECT_0;
}

}  // namespace

void AwaitCondition(const std::string& awaited, const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            RaiseTimeOut(awaited);
        }
        Sleep(kPollingInterval);
    }
}

std::uint32_t AwaitEnd(HANDLE process, const std::string& awaited) {
    if (!EndsWithin(process, kPatienceMilliseconds)) {
        RaiseTimeOut(awaited);
    }
    return AwaitExitCode(process);
}

bool HasEnded(HANDLE process) {
    return EndsWithin(process, 0);
}

}  // namespace updater
