#pragma once

#include "client/ecdsa_der.h"

namespace updater {

/// Whether a point is on the curve P-256; not every system looks when it is given a key.
bool IsOnCurve(const EcdsaPoint& point);

}  // namespace updater
