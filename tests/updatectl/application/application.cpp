#include "support/windows_api.h"

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    Sleep(INFINITE);
    return 0;
}
