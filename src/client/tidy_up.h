#pragma once

#include "client/session.h"

namespace updater {

/// Deletes the setup programs in the data directory but the offered one, whole or in part, and the
/// job directories but the last one. What is in use stays. Raises what `ReadFeedStore` and
/// `VisitDirectory` do for what they cannot read.
void TidyUp(const Session& session);

}  // namespace updater
