// Updates under the eyes of a virus scanner: another process that opens each new or changed file as
// soon as it sees it, and holds it for 300 ms.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

#include "elevation/program_start.h"
#include "end_to_end/error_box.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
#include "snapshot/program_assets.h"
#include "snapshot/program_restore.h"
#include "support/argument_quoting.h"
#include "support/process_utilities.h"
#include "support/windows_api.h"

namespace updater {

namespace {

UniqueHandle CreateEventNamed(const std::wstring& name) {
    return OwnHandle(CreateEventW(nullptr, TRUE, FALSE, name.c_str()));
}

std::filesystem::path ScanningProgram() {
    const std::filesystem::path own = GetProcessImagePath(GetCurrentProcess());
    return own.parent_path() / L"scanning-program.exe";
}

// A scanner that watches one directory until it is stopped.
struct Scanner {
    Scanner(const std::filesystem::path& directory, const std::wstring& way) {
        const std::wstring baseName = L"Local\\Scanner-" + CreateJobIdentity();
        const UniqueHandle ready = CreateEventNamed(baseName + L"-ready");
        stop = CreateEventNamed(baseName + L"-stop");
        program = StartProgram({.program = ScanningProgram(),
                                .arguments = way + L' ' + baseName + L"-ready " + baseName +
                                             L"-stop " + QuoteArgument(directory.native())});
        if (WaitForSingleObject(ready.get(), kPatienceMilliseconds) != WAIT_OBJECT_0) {
            throw std::runtime_error("The scanner does not begin");
        }
    }

    // Returns how many files it has held.
    [[nodiscard]] std::uint32_t Stop() const {
        SetEvent(stop.get());
        return AwaitEnd(program.process.get(), "the scanner's end");
    }

    static constexpr DWORD kPatienceMilliseconds = 60000;
    UniqueHandle stop;
    StartedProgram program;
};

struct ScannedUpdate : UpdateTest {
    // Returns the last record.
    std::string Complete() {
        BeginUpdate();
        CloseApplication(application);
        AwaitCondition("the update's outcome", [&] {
            const std::string record = LastRecordText(job.jobDirectory);
            return record.starts_with(R"({"state":"succeeded")") ||
                   record.starts_with(R"({"state":"failed")");
        });
        std::string record = LastRecordText(job.jobDirectory);
        if (record.starts_with(R"({"state":"failed")")) {
            CloseMessageBox(AwaitMessageBox(run.brokerId));
        }
        AwaitBroker(run);
        return record;
    }

    void ExpectVersion2() const {
        EXPECT_EQ(FindInventoryDifferences(job.installDirectory), std::vector<std::string>());
        EXPECT_EQ(FindDifferences(UserData(), ReadUserData(job.installDirectory)),
                  std::vector<std::string>());
        EXPECT_EQ(RegisteredVersion(), L"2.0.0.0");
    }

    // A rollback that met with a held file has left a complete backup, which can be put back now.
    void ExpectCompleteBackup() const {
        const std::vector<std::filesystem::path> staging = NewStagingDirectories();
        ASSERT_EQ(staging.size(), 1U);
        const std::filesystem::path backup = staging[0] / L"backup";
        EXPECT_EQ(FindDifferences(programBefore, ReadProgramFiles(backup)),
                  std::vector<std::string>());
        RestoreProgram(job.installDirectory, backup, EnumerateProgramAssets(backup));
        EXPECT_EQ(FindDifferences(programBefore, ReadProgramFiles(job.installDirectory)),
                  std::vector<std::string>());
        EXPECT_EQ(FindDifferences(UserData(), ReadUserData(job.installDirectory)),
                  std::vector<std::string>());
    }
};

TEST_F(ScannedUpdate, SucceedsWhenTheScannerLetsOthersAtTheFilesThatItHolds) {
    const Scanner scanner(job.installDirectory, L"shared");
    EXPECT_EQ(Complete(), RecordText("succeeded", "Installed version 2.0.0.0", 0));
    EXPECT_GT(scanner.Stop(), 0U);
    ExpectVersion2();
}

// It depends on the moment which step meets with a held file first, and whether the rollback does.
TEST_F(ScannedUpdate, EndsClearlyAndHarmlesslyWhenTheScannerLetsNobodyAtTheFilesThatItHolds) {
    const Scanner scanner(job.installDirectory, L"exclusive");
    const std::string record = Complete();
    EXPECT_GT(scanner.Stop(), 0U);
    if (record == RecordText("succeeded", "Installed version 2.0.0.0", 0)) {
        ExpectVersion2();
    } else if (record.find("; previous program restored") != std::string::npos) {
        ExpectNothingChanged(*this);
    } else {
        EXPECT_NE(record.find("cannot access the file"), std::string::npos) << record;
        ExpectCompleteBackup();
    }
}

}  // namespace

}  // namespace updater
