#include "faults/call_sweep.h"

#include <algorithm>
#include <optional>
#include <regex>
#include <stdexcept>

#include "faults/call_stack.h"
#include "support/text_conversion.h"

namespace updater::faults {

namespace {

enum class Watch { Nothing, Record, Fault };

struct Sweep {
    Watch watch = Watch::Nothing;
    std::vector<Call> calls;
    std::size_t callNumber = 0;
    /// How many calls have begun and not ended; beyond the first they are not the updater's.
    int depth = 0;

    const Fault* fault = nullptr;
    std::optional<Call> failed;
    bool clockJumped = false;
};

Sweep sweep;

Call CallNow(std::string_view function, const wchar_t* argument) {
    return {function, UpdaterFunctionsOnStack(), argument == nullptr ? L"" : argument};
}

// Each run makes identities of its own, which are parts of names.
std::wstring WithoutIdentities(const std::wstring& text) {
    static const std::wregex identity(L"\\{[0-9A-F-]{36}\\}");
    return std::regex_replace(text, identity, L"{}");
}

bool IsSameCall(const Call& call, const Call& other) {
    return call.function == other.function && call.callers == other.callers &&
           WithoutIdentities(call.argument) == WithoutIdentities(other.argument);
}

const CallFailure* FailureOfNextCall(std::string_view function, const wchar_t* argument) {
    if (sweep.callNumber++ != sweep.fault->index) {
        return nullptr;
    }
    sweep.failed = CallNow(function, argument);
    sweep.clockJumped = sweep.fault->failure.kind == FailureKind::ClockJumps;
    return &sweep.fault->failure;
}

// Watches the calls of one action.
struct Watching {
    explicit Watching(Watch watch) { sweep.watch = watch; }
    ~Watching() { sweep.watch = Watch::Nothing; }
    Watching(const Watching&) = delete;
    Watching& operator=(const Watching&) = delete;
};

}  // namespace

bool IsWithin(const Call& call, std::string_view caller) {
    return std::ranges::find(call.callers, caller) != call.callers.end();
}

std::string Describe(const std::vector<Call>& calls, std::size_t index) {
    const Call& call = calls[index];
    std::string text(call.function);
    if (!call.argument.empty()) {
        constexpr std::size_t kLongestText = 100;
        const std::size_t hidden =
            call.argument.size() - std::min(kLongestText, call.argument.size());
        text += (hidden > 0 ? " (..." : " (") + WideToUtf8(call.argument.substr(hidden)) + ")";
    }
    text += ", call " + std::to_string(index + 1) + ", in ";
    for (auto caller = call.callers.rbegin(); caller != call.callers.rend(); ++caller) {
        text += (caller == call.callers.rbegin() ? "" : " > ") + *caller;
    }
    return text;
}

std::vector<Call> RecordCalls(const std::function<void()>& action) {
    sweep = {};
    const Watching watching(Watch::Record);
    action();
    return std::move(sweep.calls);
}

void RunWithFault(const Fault& fault, const std::function<void()>& action) {
    sweep = {};
    sweep.fault = &fault;
    {
        const Watching watching(Watch::Fault);
        action();
    }
    if (!sweep.failed) {
        throw std::runtime_error("The run did not come to the recorded call");
    }
    if (!IsSameCall(*sweep.failed, fault.FailedCall())) {
        throw std::runtime_error("The run came to another call than the recorded one: " +
                                 Describe({*sweep.failed}, 0));
    }
}

const CallFailure* BeginCall(std::string_view function, const wchar_t* argument) noexcept {
    if (sweep.depth++ > 0 || sweep.watch == Watch::Nothing) {
        return nullptr;
    }
    const DWORD lastError = GetLastError();
    const CallFailure* failure = nullptr;
    if (sweep.watch == Watch::Record) {
        sweep.calls.push_back(CallNow(function, argument));
    } else {
        failure = FailureOfNextCall(function, argument);
    }
    SetLastError(lastError);
    return failure;
}

void EndCall() noexcept {
    --sweep.depth;
}

ULONGLONG ClockAhead() noexcept {
    constexpr ULONGLONG kTenMinutes = 600'000;
    return sweep.clockJumped ? kTenMinutes : 0;
}

}  // namespace updater::faults
