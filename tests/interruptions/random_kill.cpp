#include "interruptions/random_kill.h"

#include <array>
#include <chrono>
#include <iostream>
#include <string>

#include "end_to_end/running_processes.h"
#include "end_to_end/waiting.h"
#include "inputs/random_source.h"
#include "interruptions/killed_update.h"

namespace updater {

namespace {

using Seconds = std::chrono::duration<double>;

constexpr std::array kVictims = {Victim::Broker, Victim::Worker, Victim::Broker, Victim::Worker,
                                 Victim::Everything};

// Every so many updates one is rolled back, so that the rollback has its moments, too.
constexpr std::size_t kFailingPeriod = 4;

// An update may be faster than the measured one, and its victim gone at the moment; then an earlier
// moment is taken.
constexpr double kEarlier = 0.7;
constexpr int kAttempts = 10;

struct Lifetimes {
    Seconds broker{};
    Seconds worker{};
};

Lifetimes MeasureUndisturbedRun() {
    UpdateScene update;
    update.BeginUpdate();
    update.AwaitWorker();
    CloseApplication(update.application);
    update.AwaitBroker();
    return {Seconds(RunningTime(update.broker.get())), Seconds(RunningTime(update.worker.get()))};
}

Seconds LifetimeOf(Victim victim) {
    static const Lifetimes lifetimes = MeasureUndisturbedRun();
    return victim == Victim::Broker ? lifetimes.broker : lifetimes.worker;
}

struct SweepCount {
    int kills = 0;
    int recovered = 0;
};

SweepCount count;

// Returns a random moment of those that are this one's share of the victim's life.
Seconds MomentOf(std::size_t index, Victim victim) {
    RandomSource random = MakeRandomSource("moment " + std::to_string(index));
    constexpr std::size_t kSteps = 1000;
    const std::size_t step = index * kSteps + RandomBelow(random, kSteps);
    return LifetimeOf(victim) * static_cast<double>(step) / static_cast<double>(kMoments * kSteps);
}

bool ExpectUnharmedMachineAt(Seconds moment, Victim victim, bool rolledBack) {
    KilledUpdate killed;
    if (rolledBack) {
        killed.OfferFailingSetup();
    }
    std::optional<std::chrono::steady_clock::time_point> start;
    if (!killed.Happens(victim, [&] {
            const auto now = std::chrono::steady_clock::now();
            start = start.value_or(now);
            return now - *start >= moment;
        })) {
        return false;
    }
    killed.ExpectUnharmedMachine();
    return true;
}

}  // namespace

void ExpectUnharmedMachineAfterMoment(std::size_t number) {
    const Victim victim = kVictims[number % kVictims.size()];
    const bool rolledBack = number % kFailingPeriod == kFailingPeriod - 1;
    Seconds moment = MomentOf(number, victim);
    for (int attempt = 1; !ExpectUnharmedMachineAt(moment, victim, rolledBack); ++attempt) {
        ASSERT_LT(attempt, kAttempts);
        moment *= kEarlier;
    }
    ++count.kills;
    count.recovered += testing::Test::HasFailure() ? 0 : 1;
}

void RandomKill::TearDownTestSuite() {
    std::cout << count.kills << " kills, " << count.recovered << " recovered" << std::endl;
}

}  // namespace updater
