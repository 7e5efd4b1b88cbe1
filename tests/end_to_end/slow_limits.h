#pragma once

#include <gtest/gtest.h>

// The three-minute limits, where they are waited for in real time.

namespace updater {

/// Expects a measured time not to be shorter. How much longer it is, the machine decides.
inline void ExpectThreeMinutesAtLeast(double seconds) {
    EXPECT_GE(seconds, 179);
}

}  // namespace updater
