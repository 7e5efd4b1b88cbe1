// Many updates of one application begun at the same time. One of them installs; each of the others
// says so and changes nothing.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "end_to_end/build_outputs.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
#include "fixtures/application_names.h"
#include "fixtures/named_event.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/handshake.h"
#include "support/process_utilities.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr std::size_t kBrokers = 20;
constexpr std::size_t kWorkers = 8;

struct SimultaneousUpdates : UpdateTest {
    SimultaneousUpdates() { application = StartApplication(job.installDirectory); }

    [[nodiscard]] std::filesystem::path JobDirectory(std::size_t index) const {
        const std::filesystem::path directory = InWorkspace(L"任务") / std::to_wstring(index);
        CreateDirectories(directory);
        return directory;
    }
};

// One of many, and how to tell when it has ended.
struct Contender {
    std::filesystem::path jobDirectory;
    HANDLE process = nullptr;
};

// Waits until only one runs, moves it to the front, and expects the reports of the others.
void ExpectOneToRemain(std::vector<Contender>& contenders) {
    AwaitCondition("the end of all updates but one", [&] {
        return std::ranges::count_if(contenders, [](const Contender& contender) {
                   return HasEnded(contender.process);
               }) == static_cast<std::ptrdiff_t>(contenders.size()) - 1;
    });
    const auto isRunning = [](const Contender& contender) { return !HasEnded(contender.process); };
    std::iter_swap(contenders.begin(), std::ranges::find_if(contenders, isRunning));
    for (std::size_t index = 1; index < contenders.size(); ++index) {
        EXPECT_EQ(AwaitExitCode(contenders[index].process), 1U);
        EXPECT_EQ(LastRecordText(contenders[index].jobDirectory),
                  RecordText("failed", "Another update installation is running", 1));
    }
}

struct SimultaneousBrokers : SimultaneousUpdates {
    void StartBrokerOf(std::size_t index) {
        WholeUpdate& update = *updates.emplace_back(std::make_unique<WholeUpdate>(job));
        update.job.jobDirectory = JobDirectory(index);
        update.job.updater = PlaceUpdater(InWorkspace(L"更新程序") / std::to_wstring(index));
        update.StartBroker(UpdateOptions(update.job, application.id));
        contenders.push_back({update.job.jobDirectory, update.standIn.process.get()});
    }

    std::vector<std::unique_ptr<WholeUpdate>> updates;
    std::vector<Contender> contenders;
};

TEST_F(SimultaneousBrokers, InstallOnce) {
    for (std::size_t index = 0; index < kBrokers; ++index) {
        StartBrokerOf(index);
    }
    // Then only the workers' starts fall into the time that the first of them waits for a commit.
    for (const auto& update : updates) {
        update->AwaitPrompt();
    }
    for (const auto& update : updates) {
        SetEvent(update->answered.get());
    }
    ExpectOneToRemain(contenders);
    EXPECT_FALSE(HasEnded(application.process.get()));
    ExpectNothingChanged(*this);

    CloseApplication(application);

    EXPECT_EQ(AwaitEnd(contenders.front().process, "the remaining broker's end"), 0U);
    EXPECT_EQ(LastRecordText(contenders.front().jobDirectory),
              RecordText("succeeded", "Installed version 2.0.0.0", 0));
    ExpectVersion2(*this);
    ExpectRestart(job.installDirectory, "2.0.0.0");
}

// Here the test is the broker of all of them.
struct SimultaneousWorkers : SimultaneousUpdates {
    SimultaneousWorkers() {
        ready = CreateNamedEvent(ReadyEventName(baseName));
        commit = CreateNamedEvent(CommitEventName(baseName));
    }

    void PrepareWorker(std::size_t index) {
        UpdaterArguments options = Options();
        options[kEventOption] = baseName;
        options[kJobDirOption] = JobDirectory(index).native();
        ProgramStart start{RealUpdater(), CommandLineOf(kWorkerFlag, options)};
        start.state = StartState::Suspended;
        workers.push_back(StartProgram(start));
        contenders.push_back({JobDirectory(index), workers.back().process.get()});
    }

    std::wstring baseName = L"Local\\" IDENTITY_BASE_NAME L"-" + CreateJobIdentity();
    std::vector<StartedProgram> workers;
    std::vector<Contender> contenders;
};

TEST_F(SimultaneousWorkers, InstallOnce) {
    for (std::size_t index = 0; index < kWorkers; ++index) {
        PrepareWorker(index);
    }
    for (const StartedProgram& prepared : workers) {
        ResumeThread(prepared.thread.get());
    }
    ExpectOneToRemain(contenders);
    AwaitCondition("the remaining worker's readiness",
                   [&] { return IsSignalledWithin(ready.get(), 0); });
    EXPECT_EQ(NewStagingDirectories().size(), 1U);

    CloseApplication(application);
    SetEvent(commit.get());

    EXPECT_EQ(AwaitEnd(contenders.front().process, "the remaining worker's end"), 0U);
    EXPECT_EQ(LastRecordText(contenders.front().jobDirectory),
              RecordText("succeeded", "Installed version 2.0.0.0", 0));
    ExpectVersion2(*this);
}

}  // namespace

}  // namespace updater
