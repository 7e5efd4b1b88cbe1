#include "end_to_end/waiting.h"

#include <stdexcept>

#include "elevation/program_start.h"
#include "support/process_utilities.h"

namespace updater {

namespace {

constexpr DWORD kPollingInterval = 5;

[[noreturn]] void RaiseTimeOut(const std::string& awaited, std::chrono::milliseconds patience) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(patience).count();
    throw std::runtime_error("Waited " + std::to_string(seconds) + " s in vain for " + awaited);
}

bool EndsWithin(HANDLE process, std::chrono::milliseconds patience) {
    const DWORD result = WaitForSingleObject(process, static_cast<DWORD>(patience.count()));
    if (result == WAIT_FAILED) {
        RaiseLastError("Cannot wait for a process");
    }
    return result == WAIT_OBJECT_0;
}

}  // namespace

void AwaitCondition(const std::string& awaited, const std::function<bool()>& condition,
                    std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            RaiseTimeOut(awaited, patience);
        }
        Sleep(kPollingInterval);
    }
}

std::uint32_t AwaitEnd(HANDLE process, const std::string& awaited,
                       std::chrono::milliseconds patience) {
    if (!EndsWithin(process, patience)) {
        RaiseTimeOut(awaited, patience);
    }
    return AwaitExitCode(process);
}

bool HasEnded(HANDLE process) {
    return EndsWithin(process, std::chrono::milliseconds(0));
}

}  // namespace updater
