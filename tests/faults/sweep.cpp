#include "faults/sweep.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <exception>
#include <span>

#include "faults/sweep_report.h"
#include "fixtures/open_handles.h"

namespace updater::faults {

namespace {

// A record that is written empty is seen only if no other one follows.
bool IsInLastRecord(const Fault& fault) {
    const auto failed = fault.calls.begin() + static_cast<std::ptrdiff_t>(fault.index);
    return std::count_if(failed, fault.calls.end(),
                         [](const Call& call) { return call.function == "MoveFileExW"; }) == 1;
}

// The handler of what the modes raise has nobody above it.
Outcome RaisedInHandler(const SweptMode& mode, const std::string& message) {
    Outcome outcome = mode.undisturbed;
    outcome[kEnd] = "uncaught: " + message;
    outcome[kStatus] = mode.statusBeforeHandler;
    return outcome;
}

Outcome ExpectedOutcome(const SweptMode& mode, const Fault& fault) {
    const Effect& effect = EffectOf(fault, mode.rules);
    Outcome expected = mode.undisturbed;
    switch (effect.kind) {
        case EffectKind::None:
            break;
        case EffectKind::Raises:
        case EffectKind::RaisesFileSystemError: {
            const std::string message = RaisedMessage(effect, fault);
            return IsWithin(fault.FailedCall(), "RunSelectedMode") ? mode.raised(fault, message)
                                                                   : RaisedInHandler(mode, message);
        }
        case EffectKind::EmptiesRecord:
            if (IsInLastRecord(fault)) {
                expected[kStatus] = "empty";
            }
            break;
        case EffectKind::NeverStarts:
            expected = mode.before;
            expected[kEnd] = effect.text;
            break;
        case EffectKind::Changes:
            effect.change(expected, fault);
            break;
    }
    return expected;
}

// Runs the mode with one fault and returns what is wrong then, or an empty text. `handles` is how
// many were open before, and becomes how many are open after.
std::string Disturb(const SweptMode& mode, const Fault& fault, std::size_t& handles) {
    try {
        Outcome expected = ExpectedOutcome(mode, fault);
        expected[kOpenHandles] = std::to_string(handles);
        Outcome outcome = mode.run(
            [&fault](const std::function<void()>& action) { RunWithFault(fault, action); });
        handles = CountOpenHandles();
        outcome[kOpenHandles] = std::to_string(handles);
        return Differences(expected, outcome);
    } catch (const std::exception& failure) {
        return std::string("\n  ") + failure.what();
    }
}

bool IsFirstOfItsKind(const std::vector<Call>& calls, std::size_t index) {
    return std::none_of(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(index),
                        [&call = calls[index]](const Call& earlier) {
                            return earlier.function == call.function &&
                                   earlier.callers == call.callers;
                        });
}

// The same with each of these faults that the call can have, one after the other.
std::string DisturbCall(const SweptMode& mode, const std::vector<Call>& calls, std::size_t index,
                        std::span<const CallFailure> failures, std::size_t& handles) {
    std::string differences;
    for (const CallFailure& failure : failures) {
        if (failure.function == calls[index].function) {
            differences += Disturb(mode, {calls, index, failure}, handles);
        }
    }
    return differences;
}

std::vector<Call> RecordUndisturbedRun(const SweptMode& mode) {
    std::vector<Call> calls;
    const Outcome outcome =
        mode.run([&calls](const std::function<void()>& action) { calls = RecordCalls(action); });
    const std::string differences = Differences(mode.undisturbed, outcome);
    EXPECT_TRUE(differences.empty()) << mode.name << ", without a fault" << differences;
    EXPECT_FALSE(calls.empty());
    return calls;
}

}  // namespace

void SweepCalls(const SweptMode& mode) {
    const std::vector<Call> calls = RecordUndisturbedRun(mode);
    std::size_t survived = 0;
    // Once before what counts: libraries open handles of their own on their first use.
    std::size_t handles = 0;
    DisturbCall(mode, calls, 0, kCallFailures, handles);
    std::string report;
    for (std::size_t index = 0; index < calls.size(); ++index) {
        std::string differences = DisturbCall(mode, calls, index, kCallFailures, handles);
        if (IsFirstOfItsKind(calls, index)) {
            differences += DisturbCall(mode, calls, index, kFurtherFailures, handles);
        }
        if (differences.empty()) {
            ++survived;
        } else {
            report += '\n' + Describe(calls, index) + differences;
        }
    }
    EXPECT_EQ(survived, calls.size()) << mode.name << report;
    ReportSweep(mode.name, calls, survived);
}

}  // namespace updater::faults
