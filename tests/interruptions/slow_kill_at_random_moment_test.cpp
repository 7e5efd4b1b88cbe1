// The other thirty of the random moments.

#include <algorithm>
#include <vector>

#include "interruptions/random_kill.h"

namespace updater {

namespace {

std::vector<std::size_t> OtherMoments() {
    std::vector<std::size_t> moments;
    for (std::size_t number = 0; number < kMoments; ++number) {
        if (std::ranges::find(kMomentsOfEveryRun, number) == kMomentsOfEveryRun.end()) {
            moments.push_back(number);
        }
    }
    return moments;
}

struct UpdateKilledAtRandomMoment : RandomKill {};

TEST_P(UpdateKilledAtRandomMoment, LeavesAnUnharmedMachine) {
    ExpectUnharmedMachineAfterMoment(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Moments, UpdateKilledAtRandomMoment, testing::ValuesIn(OtherMoments()),
                         testing::PrintToStringParamName());

}  // namespace

}  // namespace updater
