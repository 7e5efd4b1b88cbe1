// Where a real setup program's second half runs, and what it leaves behind: Inno Setup unpacks the
// program that installs into the directory for temporary files and starts it there.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "end_to_end/error_box.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/setup_gate.h"
#include "end_to_end/update_expectations.h"
#include "support/text_conversion.h"

namespace updater {
namespace {

// The executables of the process's children, their children and so on.
std::vector<std::filesystem::path> DescendantsOf(std::uint32_t processId) {
    std::set<std::uint32_t> family = {processId};
    std::vector<std::filesystem::path> images;
    const std::vector<RunningProcess> running = ListRunningProcesses();
    for (std::size_t before = 0; before != family.size();) {
        before = family.size();
        for (const RunningProcess& process : running) {
            if (family.contains(process.parentId) && family.insert(process.id).second) {
                images.push_back(process.image);
            }
        }
    }
    return images;
}

std::vector<std::string> EntriesOf(const std::filesystem::path& directory) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.push_back(WideToUtf8(entry.path().filename().native()));
    }
    return names;
}

struct SetupEngine : UpdateTest {
    // Lets the setup program come to its gate, looks at it and lets it go on.
    void UpdateWithALook(const wchar_t* setup) {
        OfferSetup(setup, L"2.0.0.0");
        const SetupGate gate(*this);
        CarryOutUpdate();
        AwaitWorker();
        Await("the setup program at its gate", [&] { return gate.IsReached(); });
        staging = NewStagingDirectories().at(0);
        images = DescendantsOf(GetProcessId(worker.get()));
        gate.Open();
    }

    void ExpectOrdinaryStagingDirectory() const {
        EXPECT_THAT(EntriesOf(staging),
                    testing::UnorderedElementsAre("installer.exe", "backup", "install.log"));
    }

    std::filesystem::path staging;
    std::vector<std::filesystem::path> images;
};

TEST_F(SetupEngine, RunsInTheStagingDirectoryAndIsGoneAfterSuccess) {
    UpdateWithALook(L"v2-adding");
    // The setup program itself, and the engine that it has unpacked.
    EXPECT_GE(images.size(), 2U);
    for (const std::filesystem::path& image : images) {
        EXPECT_TRUE(image.native().starts_with(staging.native() + L'\\'))
            << WideToUtf8(image.native());
    }
    ExpectQuietEnd(*this, RecordText("succeeded", "Installed version 2.0.0.0", 0), 0);
    ExpectOrdinaryStagingDirectory();
    ExpectRestart(job.installDirectory, "2.0.0.0");
}

TEST_F(SetupEngine, IsGoneAfterARollback) {
    UpdateWithALook(L"v2-empty-inventory");
    ExpectErrorBox(
        *this,
        RecordText("failed", "Installed program inventory is empty; previous program restored", 1));
    ExpectOrdinaryStagingDirectory();
    ExpectRestart(job.installDirectory, "1.0.0.0");
}

TEST_F(SetupEngine, IsGoneAfterASetupProgramThatRefuses) {
    OfferSetup(L"v2-refusing", L"2.0.0.0");
    CarryOutUpdate();
    ExpectErrorBox(
        *this,
        RecordText("failed", "Inno Setup did not complete; exit code=1; previous program restored",
                   1));
    staging = NewStagingDirectories().at(0);
    ExpectOrdinaryStagingDirectory();
    ExpectRestart(job.installDirectory, "1.0.0.0");
}

}  // namespace
}  // namespace updater
