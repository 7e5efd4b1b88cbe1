// Broker, worker and everything at once are ended at random moments, at ten in every run.

#include "interruptions/random_kill.h"

namespace updater {

namespace {

struct UpdateKilledAtRandomMoment : RandomKill {};

TEST_P(UpdateKilledAtRandomMoment, LeavesAnUnharmedMachine) {
    ExpectUnharmedMachineAfterMoment(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Moments, UpdateKilledAtRandomMoment, testing::ValuesIn(kMomentsOfEveryRun),
                         testing::PrintToStringParamName());

}  // namespace

}  // namespace updater
