#pragma once

#include <span>
#include <string>
#include <string_view>

#include "faults/call_sweep.h"
#include "faults/outcome.h"

namespace updater::faults {

enum class EffectKind {
    /// The run ends as it does without the fault.
    None,
    /// A failure with this message is raised.
    Raises,
    /// The library's failure of this operation is raised.
    RaisesFileSystemError,
    /// The record is written empty, and still moved into its place: only the move is checked.
    EmptiesRecord,
    /// The updater ends before it has done anything, without a record.
    NeverStarts,
    /// The outcome changes in another way.
    Changes,
};

struct Effect {
    EffectKind kind = EffectKind::None;
    std::string_view text = {};
    /// Of the library's failure, if it is not the fault's own.
    DWORD error = 0;
    /// Makes the outcome of the run with the fault out of the one without.
    void (*change)(Outcome& outcome, const Fault& fault) = nullptr;
};

inline constexpr Effect kNothing = {};
inline constexpr Effect kEmptyRecord = {EffectKind::EmptiesRecord};

inline constexpr Effect kNeverStarts = {EffectKind::NeverStarts,
                                        "uncaught: Missing update argument"};

constexpr Effect Raises(std::string_view message) {
    return {EffectKind::Raises, message};
}

constexpr Effect RaisesFileSystem(std::string_view operation, DWORD error = 0) {
    return {EffectKind::RaisesFileSystemError, operation, error};
}

constexpr Effect Changes(void (*change)(Outcome& outcome, const Fault& fault)) {
    return {EffectKind::Changes, {}, 0, change};
}

enum class Turn {
    Any,
    /// Only the first of the calls in which function, callers and argument are the same.
    First,
};

/// What follows when calls of a function fail. The first rule that fits a call holds.
struct Rule {
    std::string_view function;
    /// The function of the updater in whose course the call is made; if empty, any.
    std::string_view caller;
    /// What the call's first argument ends with; if empty, anything.
    std::wstring_view argumentEnd;
    Effect effect;
    Turn turn = Turn::Any;
};

/// Returns the effect that the specific rules, or else the general ones, give for a fault. Raises
/// `std::runtime_error` when there is none: the call is a new one, and somebody has to say what
/// must follow when it fails.
const Effect& EffectOf(const Fault& fault, std::span<const Rule> specificRules);

/// The message of a failure that the effect raises.
std::string RaisedMessage(const Effect& effect, const Fault& fault);

}  // namespace updater::faults
