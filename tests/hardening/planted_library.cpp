// Lies under the name of one of the system's libraries where a program might look for it. When it
// is loaded it leaves a mark beside itself, which says in what program that was.

#include "support/windows_api.h"

#include <cstddef>
#include <iterator>

#include "hardening/load_mark.h"

namespace {

constexpr DWORD kLongestPath = 1024;

wchar_t markFile[kLongestPath + std::size(updater::kLoadMarkSuffix)];
wchar_t program[kLongestPath];
char programUtf8[3 * kLongestPath];

void LeaveMark(HINSTANCE library) {
    DWORD length = GetModuleFileNameW(library, markFile, kLongestPath);
    for (const wchar_t character : updater::kLoadMarkSuffix) {
        markFile[length++] = character;
    }
    length = GetModuleFileNameW(nullptr, program, kLongestPath);
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, program, static_cast<int>(length),
                                          programUtf8, sizeof(programUtf8), nullptr, nullptr);
    const HANDLE mark = CreateFileW(markFile, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD written = 0;
    WriteFile(mark, programUtf8, static_cast<DWORD>(bytes), &written, nullptr);
    CloseHandle(mark);
}

}  // namespace

// The whole program: a run-time library would load others.
extern "C" BOOL WINAPI DllMainCRTStartup(HINSTANCE library, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        LeaveMark(library);
    }
    return TRUE;
}

// What trusting-program imports. Since nothing is marked for export, the linker exports everything.
extern "C" DWORD WINAPI GetFileVersionInfoSizeW(LPCWSTR, LPDWORD) {
    return 0;
}

// An address among the data gives the file relocations, without which a process could load only one
// such library.
extern "C" BOOL(WINAPI* const plantedLibrary)(HINSTANCE, DWORD, LPVOID);
BOOL(WINAPI* const plantedLibrary)(HINSTANCE, DWORD, LPVOID) = DllMainCRTStartup;
