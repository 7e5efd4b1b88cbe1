// waiting-program RUNNING-EVENT [END-EVENT]
//
// Sets the first event when it runs, and ends when the second one is set. Without a second one it
// waits to be ended; it gives up after a minute, so that none stays behind.

#include "support/handle.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr int kUsageError = 90;
constexpr DWORD kPatience = 60000;

int Wait(int count, wchar_t** tokens) {
    if (count < 2) {
        return kUsageError;
    }
    const UniqueHandle running = OwnHandle(OpenEventW(EVENT_MODIFY_STATE, FALSE, tokens[1]));
    if (!running || SetEvent(running.get()) == 0) {
        return kUsageError;
    }
    if (count == 2) {
        Sleep(kPatience);
        return 0;
    }
    const UniqueHandle end = OwnHandle(OpenEventW(SYNCHRONIZE, FALSE, tokens[2]));
    return end && WaitForSingleObject(end.get(), kPatience) == WAIT_OBJECT_0 ? 0 : kUsageError;
}

}  // namespace

}  // namespace updater

int wmain(int count, wchar_t** tokens) {
    return updater::Wait(count, tokens);
}
