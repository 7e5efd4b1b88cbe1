// holding-program FILE BEGIN-EVENT HELD-EVENT END-EVENT
//
// When the first event is set, opens the file without sharing it and sets the second; closes it and
// ends with 0 when the third is set. It gives up with 90 when the tests' patience is over, and with
// 91 at once when the file cannot be opened.

#include "fixtures/patience.h"
#include "support/handle.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr int kGivenUp = 90;
constexpr int kNotOpened = 91;
constexpr int kTokens = 5;

UniqueHandle OpenEventNamed(const wchar_t* name) {
    return OwnHandle(OpenEventW(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, name));
}

bool IsSet(const UniqueHandle& event) {
    return event && WaitForSingleObject(event.get(), kPatienceMilliseconds) == WAIT_OBJECT_0;
}

int Hold(int count, wchar_t** tokens) {
    if (count != kTokens || !IsSet(OpenEventNamed(tokens[2]))) {
        return kGivenUp;
    }
    const UniqueHandle file =
        OwnHandle(CreateFileW(tokens[1], GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    if (!file) {
        return kNotOpened;
    }
    SetEvent(OpenEventNamed(tokens[3]).get());
    return IsSet(OpenEventNamed(tokens[4])) ? 0 : kGivenUp;
}

}  // namespace

}  // namespace updater

int wmain(int count, wchar_t** tokens) {
    return updater::Hold(count, tokens);
}
