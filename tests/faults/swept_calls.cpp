// What stands between the updater and Windows in this test program. The updater's objects are
// linked with the names of the functions that they call changed, "CopyFileW" to "swept_CopyFileW",
// so that each call comes to a function made here. The list of the functions is made from the
// objects themselves.

#include "support/windows_api.h"

// After the Windows types that they need.
#include <bcrypt.h>
#include <objbase.h>
#include <sddl.h>
#include <shellapi.h>
#include <shlobj.h>
#include <tlhelp32.h>

#include <cwchar>
#include <type_traits>

#include "faults/call_sweep.h"

namespace updater::faults {

namespace {

// The path or name that a call begins with, for the reader of a record.
const wchar_t* TextOf() {
    return nullptr;
}

template <typename First, typename... Rest>
const wchar_t* TextOf(First first, Rest... /*rest*/) {
    if constexpr (std::is_same_v<First, const wchar_t*>) {
        return first;
    } else {
        return nullptr;
    }
}

template <typename Result>
Result AsResult(std::intptr_t value) {
    if constexpr (std::is_pointer_v<Result>) {
        return reinterpret_cast<Result>(value);
    } else {
        return static_cast<Result>(value);
    }
}

void TakeProcessAway(SHELLEXECUTEINFOW* info) {
    CloseHandle(info->hProcess);
    info->hProcess = nullptr;
}

template <typename... Arguments>
void TakeProcessAway(Arguments... /*arguments*/) {}

struct CallEnd {
    ~CallEnd() { EndCall(); }
};

template <typename Callee, typename Function>
struct Swept;

template <typename Callee, typename Result, typename... Arguments>
struct Swept<Callee, Result(Arguments...)> {
    // The function that the updater calls instead of `Callee`.
    static Result Call(Arguments... arguments) {
        static_assert(IsListed(Callee::kName), "call_failures.h must tell how this call fails");
        if constexpr (CanFail(Callee::kName)) {
            const CallFailure* failure = BeginCall(Callee::kName, TextOf(arguments...));
            const CallEnd end;
            return failure != nullptr ? Fail(*failure, arguments...) : CallReal(arguments...);
        } else {
            return Callee::Real(arguments...);
        }
    }

    static Result CallReal(Arguments... arguments) {
        if constexpr (Callee::kName == "GetTickCount64") {
            return Callee::Real(arguments...) + ClockAhead();
        } else {
            return Callee::Real(arguments...);
        }
    }

    static Result Fail(const CallFailure& failure, Arguments... arguments) {
        switch (failure.kind) {
            case FailureKind::ClockJumps:
                return CallReal(arguments...);
            case FailureKind::WithoutProcess:
                Callee::Real(arguments...);
                TakeProcessAway(arguments...);
                break;
            case FailureKind::ClosedButReported:
                Callee::Real(arguments...);
                break;
            case FailureKind::Refused:
                break;
        }
        SetLastError(failure.error);
        return AsResult<Result>(failure.result);
    }
};

}  // namespace

// An imported function is called through a pointer, `swept_imp_X` once renamed. A function that its
// header does not mark as imported is called directly; it is then a jump through that pointer, as
// an import library makes it.
#define SWEPT_CALL(function)                                 \
    namespace {                                              \
    struct function##Callee {                                \
        static constexpr std::string_view kName = #function; \
        template <typename... Arguments>                     \
        static auto Real(Arguments... arguments) {           \
            return ::function(arguments...);                 \
        }                                                    \
    };                                                       \
    }                                                        \
    extern "C" {                                             \
    extern decltype(&(::function)) swept_imp_##function;     \
    decltype(&(::function)) swept_imp_##function =           \
        Swept<function##Callee, decltype(::function)>::Call; \
    [[gnu::naked]] void swept_##function() {                 \
        asm("jmp *swept_imp_" #function "(%rip)");           \
    }                                                        \
    }

#include "swept_calls.inc"

}  // namespace updater::faults
