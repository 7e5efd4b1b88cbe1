// The parts of GCC's runtime that both programs replace. No other compiler has them.

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <locale>

#include "support/exit_code.h"
#include "support/windows_api.h"

// The linker takes a part from here instead of the runtime's own only if it has the runtime's name,
// and such names are reserved.

extern "C" {

// The compiler's own library takes its guard value from the system's cryptographic provider, which
// loads further libraries before the program can restrict where they come from. What differs in
// each process is mixed instead, as other compilers do.
//
// The compiler has every guarded function read a variable of this name. Its value is only known
// when the process starts, so it can be neither local nor constant.
std::uintptr_t __stack_chk_guard = 0;

__attribute__((constructor(101), no_stack_protector)) static void InitializeStackGuard() {
    FILETIME time{};
    GetSystemTimeAsFileTime(&time);
    LARGE_INTEGER counter{};
    QueryPerformanceCounter(&counter);
    auto guard = reinterpret_cast<std::uintptr_t>(&counter);
    guard ^= (std::uintptr_t{time.dwHighDateTime} << 32U) | time.dwLowDateTime;
    guard ^= static_cast<std::uintptr_t>(counter.QuadPart) << 16U;
    guard ^= (std::uintptr_t{GetCurrentProcessId()} << 32U) | GetCurrentThreadId();
    __stack_chk_guard = guard;
}

[[noreturn]] void __stack_chk_fail() {
    std::_Exit(updater::kExitUnreported);
}

}  // extern "C"

// The runtime's own ends of the process print the failure, for which they bring a decoder of type
// names that is a tenth of the executable, and then call `abort`.

void __gnu_cxx::__verbose_terminate_handler() {
    std::_Exit(updater::kExitUnreported);
}

// NOLINTNEXTLINE(bugprone-std-namespace-modification): the library's own headers call it
void std::__glibcxx_assert_fail(const char* /*file*/, int /*line*/, const char* /*function*/,
                                const char* /*condition*/) noexcept {
    std::_Exit(updater::kExitUnreported);
}

#if _GLIBCXX_USE_DUAL_ABI
// The library's file paths bring its locales with them. Part of these are adapters between its old
// strings and its new ones, for the facets that a program puts into a locale itself. No program
// here makes a locale, so nobody calls these two, and the adapters, 48,000 bytes, stay out.

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): declared non-static in <locale>
const std::locale::facet* std::locale::facet::_M_cow_shim(const id* /*which*/) const {
    std::_Exit(updater::kExitUnreported);
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): declared non-static in <locale>
const std::locale::facet* std::locale::facet::_M_sso_shim(const id* /*which*/) const {
    std::_Exit(updater::kExitUnreported);
}
#endif
