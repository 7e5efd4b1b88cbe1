#pragma once

#include <gtest/gtest.h>

#include <chrono>

// The three-minute limits, where they are waited for in real time.

namespace updater {

inline constexpr std::chrono::seconds kSlowPatience{240};

/// Expects a measured time to be three minutes and what else happens in it.
inline void ExpectThreeMinutes(double seconds) {
    EXPECT_GE(seconds, 175);
    EXPECT_LE(seconds, 200);
}

}  // namespace updater
