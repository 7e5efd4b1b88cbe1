// Updates under the eyes of a virus scanner: another process that opens each new or changed file as
// soon as it sees it, and holds it for 300 ms.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "elevation/program_start.h"
#include "end_to_end/error_box.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
#include "end_to_end/window_text.h"
#include "fixtures/named_event.h"
#include "fixtures/patience.h"
#include "snapshot/program_assets.h"
#include "snapshot/program_restore.h"
#include "support/argument_quoting.h"
#include "support/process_utilities.h"
#include "support/windows_api.h"
#include "worker/staging.h"

namespace updater {

namespace {

std::filesystem::path ScanningProgram() {
    const std::filesystem::path own = GetProcessImagePath(GetCurrentProcess());
    return own.parent_path() / L"scanning-program.exe";
}

// The steps of a rollback, and the restart of the application after it, that a held file can stop.
bool TellsOfAHeldFile(const std::string& record) {
    const std::string messages[] = {
        std::system_category().message(ERROR_SHARING_VIOLATION), "SHA256 verification failed",
        "Cannot read installed executable version", "Process launch failed: "};
    return std::ranges::any_of(messages, [&record](const std::string& message) {
        return record.find(message) != std::string::npos;
    });
}

// A scanner that watches directories until it is stopped, at the latest at the end of the scope.
struct Scanner {
    Scanner(const wchar_t* way, const std::vector<std::filesystem::path>& directories) {
        const std::wstring baseName = L"Local\\Scanner-" + CreateJobIdentity();
        const UniqueHandle ready = CreateNamedEvent(baseName + L"-ready");
        stop = CreateNamedEvent(baseName + L"-stop");
        ProgramStart start;
        start.program = ScanningProgram();
        start.arguments = way + (L' ' + baseName) + L"-ready " + baseName + L"-stop";
        for (const std::filesystem::path& directory : directories) {
            start.arguments += L' ' + QuoteArgument(directory.native());
        }
        program = StartProgram(start);
        AwaitCondition("the scanner's beginning", [&] {
            return IsSignalledWithin(ready.get(), 0) || HasEnded(program.process.get());
        });
        EXPECT_FALSE(HasEnded(program.process.get()));
    }
    ~Scanner() {
        SetEvent(stop.get());
        WaitForSingleObject(program.process.get(), kPatienceMilliseconds);
    }
    Scanner(const Scanner&) = delete;
    Scanner& operator=(const Scanner&) = delete;

    // Returns how many files it has held.
    [[nodiscard]] std::uint32_t Stop() const {
        SetEvent(stop.get());
        return AwaitEnd(program.process.get(), "the scanner's end");
    }

    UniqueHandle stop;
    StartedProgram program;
};

struct ScannedUpdate : UpdateTest {
    // Returns the last record.
    std::string Complete() {
        CarryOutUpdate();
        Await("the update's outcome",
              [&] { return HasBrokerEnded() || !ListWindows(BrokerId()).empty(); });
        if (!HasBrokerEnded()) {
            CloseMessageBox(AwaitErrorBox(*this));
        }
        AwaitBroker();
        return LastRecordText(job.jobDirectory);
    }

    // A rollback that met with a held file has left a complete backup, which can be put back now.
    void ExpectCompleteBackup() const {
        const std::vector<std::filesystem::path> staging = NewStagingDirectories();
        ASSERT_EQ(staging.size(), 1U);
        const std::filesystem::path backup = staging[0] / L"backup";
        EXPECT_EQ(FindDifferences(programBefore, ReadProgramFiles(backup)),
                  std::vector<std::string>());
        // The broker has started the application again, as far as it could be started.
        EndProcessesBelow(job.installDirectory);
        RestoreProgram(job.installDirectory, backup, EnumerateProgramAssets(backup));
        EXPECT_EQ(FindDifferences(programBefore, ReadProgramFiles(job.installDirectory)),
                  std::vector<std::string>());
        EXPECT_EQ(FindDifferences(UserData(), ReadUserData(job.installDirectory)),
                  std::vector<std::string>());
    }
};

TEST_F(ScannedUpdate, SucceedsWhenTheScannerLetsOthersAtTheFilesThatItHolds) {
    const Scanner scanner(L"shared", {job.installDirectory, MachineDataFolder()});
    EXPECT_EQ(Complete(), RecordText("succeeded", "Installed version 2.0.0.0", 0));
    EXPECT_GT(scanner.Stop(), 0U);
    ExpectVersion2(*this);
}

// It depends on the moment which step meets with a held file first, and whether the rollback does.
TEST_F(ScannedUpdate, EndsClearlyAndHarmlesslyWhenTheScannerLetsNobodyAtTheFilesThatItHolds) {
    const Scanner scanner(L"exclusive", {job.installDirectory});
    const std::string record = Complete();
    EXPECT_GT(scanner.Stop(), 0U);
    if (record == RecordText("succeeded", "Installed version 2.0.0.0", 0)) {
        ExpectVersion2(*this);
    } else if (record.find("; previous program restored") != std::string::npos) {
        ExpectNothingChanged(*this);
    } else {
        EXPECT_TRUE(TellsOfAHeldFile(record)) << record;
        ExpectCompleteBackup();
    }
}

}  // namespace

}  // namespace updater
