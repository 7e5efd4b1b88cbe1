// overrunning-program stack | library
//
// Does what its argument says to memory that is not its own: writes past the end of an array on the
// stack, or reads past the end of a vector. It is compiled and linked as the updater is.

#include "app/silent_end.h"
#include "support/windows_api.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t kRoom = 16;

// The compiler must not see that the writes go too far.
volatile std::size_t length = 4 * kRoom;

int Overrun() {
    volatile char text[kRoom] = {};
    for (std::size_t index = 0; index < length; ++index) {
        text[index] = 'x';
    }
    return text[0];
}

int ReadPastTheEnd() {
    const std::vector<int> numbers(kRoom, 1);
    return numbers[length];
}

// Called through a variable, each is a function of its own with a guard of its own.
int (*volatile run)() = nullptr;

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR commandLine, int) {
    updater::EndSilentlyOnUncaughtFailure();
    const std::wstring_view guard = commandLine;
    if (guard != L"stack" && guard != L"library") {
        return 2;
    }
    run = guard == L"stack" ? Overrun : ReadPastTheEnd;
    return run() == 0 ? 0 : 1;
}
