#pragma once

#include <functional>
#include <optional>
#include <string>

#include "end_to_end/update_scene.h"
#include "interruptions/kill.h"

namespace updater {

/// Says whether the victim, which runs, is to be ended now; asked again and again.
using KillMoment = std::function<bool()>;

/// An update that needs nobody, on a machine of its own, and the end of one of its processes.
struct KilledUpdate : UpdateScene {
    KilledUpdate();

    /// Makes the setup program one that ends half-way with 7, so that the update is rolled back.
    void OfferFailingSetup();

    /// Starts the update and ends the victim when the moment has come; from then on the application
    /// is not closed any more. Returns false when the victim was faster.
    bool Happens(Victim victim, const KillMoment& hasCome);

    /// Expects what must hold after every kill, up to the success of the next update.
    void ExpectUnharmedMachine();

    /// The state word that the update comes to if nobody disturbs it.
    std::string outcome = "succeeded";
    std::optional<Kill> kill;
};

}  // namespace updater
