#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

#include "end_to_end/update_scene.h"

namespace updater {

enum class Victim {
    Broker,
    Worker,
    /// Broker, worker, setup program and application, as by a loss of power.
    Everything
};

std::ostream& operator<<(std::ostream& stream, Victim victim);

/// The exit code of a process that was ended; needs all of its 32 bits.
inline constexpr std::uint32_t kKillCode = 0xC000013A;

/// Whether the victim runs, so that it can be ended.
bool IsRunning(const UpdateScene& update, Victim victim);

struct Kill {
    Victim victim;
    /// The state word of the last record at that moment; empty if there was none, or one that is
    /// already the survivor's.
    std::string state;
};

/// Ends the victim. Returns nothing when it had ended by itself.
std::optional<Kill> KillVictim(UpdateScene& update, Victim victim);

}  // namespace updater
