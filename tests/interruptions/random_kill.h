#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstddef>

namespace updater {

/// The sweep's random moments. Each has its own share of the victim's life, as a run that nobody
/// disturbs shows it; which process is the victim, and whether the update is rolled back, changes
/// from one to the next.
inline constexpr std::size_t kMoments = 40;

/// Those in every run of the tests: one of each tenth of a life, four of the broker, four of the
/// worker and two of everything at once, each early, in between and late. Three of the later ones,
/// where a rollback has its moments, are of updates that are rolled back.
inline constexpr std::array<std::size_t, 10> kMomentsOfEveryRun = {0,  6,  9,  13, 17,
                                                                   21, 25, 31, 35, 39};

/// Ends the victim at the moment of this number, and expects what must hold after every kill.
void ExpectUnharmedMachineAfterMoment(std::size_t number);

/// Prints how many kills there were and how many were recovered from.
struct RandomKill : testing::TestWithParam<std::size_t> {
    static void TearDownTestSuite();
};

}  // namespace updater
