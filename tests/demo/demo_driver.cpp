// Performs the updates of the demonstration: a real installation, a real update, and a real update
// to a broken version that is rolled back. The exit code is 0 only if all that is promised held.

#include <exception>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "demo/narration.h"
#include "end_to_end/application.h"
#include "end_to_end/build_outputs.h"
#include "end_to_end/error_box.h"
#include "end_to_end/installed_program.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/staging_directories.h"
#include "end_to_end/whole_update.h"
#include "fixtures/application_names.h"
#include "fixtures/uninstall_entry.h"
#include "fixtures/updater_box.h"
#include "support/extended_length_path.h"
#include "support/file_system.h"
#include "support/status_file.h"
#include "support/text_conversion.h"
#include "support/version_information.h"

namespace updater {

namespace {

struct Stage {
    std::filesystem::path directory = L"C:\\\u6F14\u793A " IDENTITY_LOCAL_DIRECTORY L" demo";
    std::filesystem::path installDirectory = directory / L"\u5E94\u7528 \u7A0B\u5E8F";
    std::filesystem::path feedDirectory = directory / L"feed";
    std::vector<std::filesystem::path> stagingBefore = ListStagingDirectories();
};

// Removes what this demonstration or an earlier one, which may have been interrupted, has left.
void ClearStage(const Stage& stage) {
    EndProcessesBelow(stage.directory);
    if (PathExists(stage.directory)) {
        RemoveTree(stage.directory);
    }
    for (const std::filesystem::path& staging : ListNewStagingDirectories(stage.stagingBefore)) {
        RemoveTree(ExtendedLengthPath(staging));
    }
    ReplaceUninstallEntry({});
}

std::string Quoted(const std::wstring& text) {
    return '"' + WideToUtf8(text) + '"';
}

void CheckVersions(const Stage& stage, const std::wstring& version) {
    TellCheck(ReadExecutableVersion(stage.installDirectory / kExecutableName) == version,
              IDENTITY_EXECUTABLE " is version " + WideToUtf8(version));
    TellCheck(RegisteredVersion() == version,
              "the registered version (\"DisplayVersion\") is " + WideToUtf8(RegisteredVersion()));
}

void CheckUserData(const Stage& stage) {
    TellNoDifferences(FindDifferences(UserData(), ReadUserData(stage.installDirectory)),
                      "the user's " + std::to_string(UserData().size()) +
                          " own files are as they were, byte for byte");
}

// Closes the application afterwards.
void CheckRestart(const Stage& stage, const std::string& version) {
    const Application application = AwaitApplication(stage.installDirectory);
    const std::optional<Session> session = FindSession(stage.installDirectory, application);
    TellCheck(session && session->version == version && !session->elevated,
              "the application runs again: process " + std::to_string(application.id) +
                  ", version " + version + ", without administrator rights");
    if (session) {
        Tell("          it tells its user: " + session->updateOutcome);
    }
    CloseApplication(application);
}

void InstallVersion1(const Stage& stage) {
    Tell("1. Version 1.0.0.0 is installed by its setup program");
    Tell("   into " + Quoted(stage.installDirectory.native()));
    RunSetup(SetupProgram(L"v1"), stage.installDirectory);
    AddUserData(stage.installDirectory);
    TellNoDifferences(FindInventoryDifferences(stage.installDirectory),
                      "every file is as the version's inventory says");
    CheckVersions(stage, L"1.0.0.0");
    Tell("          the user adds " + std::to_string(UserData().size()) + " files of their own");
}

// The application is asked for the update, and the prompt for administrator rights is granted.
void BeginUpdate(WholeUpdate& update, const Stage& stage) {
    update.job.installDirectory = stage.installDirectory;
    update.onRecord = TellRecord;
    RequestUpdate(update, stage.feedDirectory);
    update.AnswerPromptStepByStep();
    update.AwaitRecord("installing");
    update.NoteRecord();
}

void UpdateToVersion2(const Stage& stage) {
    Tell("\n2. The application is asked to update itself to version 2.0.0.0");
    OfferInFeed(stage.feedDirectory, SetupProgram(L"v2"), "2.0.0.0");
    WholeUpdate update;
    BeginUpdate(update, stage);
    const std::uint32_t exitCode = update.AwaitBroker();
    update.NoteRecord();
    TellCheck(exitCode == 0, "the updater ends with exit code " + std::to_string(exitCode));
    TellNoDifferences(FindInventoryDifferences(stage.installDirectory),
                      "every file is as the version's inventory says");
    CheckVersions(stage, L"2.0.0.0");
    CheckUserData(stage);
    CheckRestart(stage, "2.0.0.0");
}

void TellErrorBox(WholeUpdate& update) {
    const MessageWindow box = AwaitErrorBox(update);
    update.NoteRecord();
    Tell("          an error box appears, " + Quoted(box.title) + ':');
    std::string line = "          | ";
    for (const char character : WideToUtf8(box.text)) {
        if (character == '\n') {
            Tell(line);
            line = "          | ";
        } else {
            line += character;
        }
    }
    Tell(line);
    TellCheck(
        box.title == kUpdaterBoxTitle && box.text == ReadStatusReport(update.job.jobDirectory),
        "it shows the record of the failure");
    CloseMessageBox(box);
}

void RollVersion3Back(const Stage& stage) {
    Tell("\n3. It is asked to update itself to version 3.0.0.0, which was put together wrongly");
    const TreeContent before = ReadProgramFiles(stage.installDirectory);
    OfferInFeed(stage.feedDirectory, SetupProgram(L"v3-broken"), "3.0.0.0");
    WholeUpdate update;
    BeginUpdate(update, stage);
    TellErrorBox(update);
    const std::uint32_t exitCode = update.AwaitBroker();
    TellCheck(exitCode == 1, "the updater ends with exit code " + std::to_string(exitCode));
    TellNoDifferences(FindDifferences(before, ReadProgramFiles(stage.installDirectory)),
                      "all " + std::to_string(before.size()) +
                          " program files are those of version 2.0.0.0 again, byte for byte");
    CheckVersions(stage, L"2.0.0.0");
    CheckUserData(stage);
    CheckRestart(stage, "2.0.0.0");
}

void Perform(const std::function<void()>& act) {
    try {
        act();
    } catch (const std::exception& failure) {
        TellCheck(false, failure.what());
    }
}

int RunDemonstration() {
    const Stage stage;
    Perform([&] {
        ClearStage(stage);
        InstallVersion1(stage);
        UpdateToVersion2(stage);
        RollVersion3Back(stage);
    });
    Perform([&] { ClearStage(stage); });
    Tell(CountFailedChecks() == 0
             ? "\nBoth updates went as promised: version 2 was installed, and the broken version 3 "
               "left version 2 and the user's files untouched."
             : "\n" + std::to_string(CountFailedChecks()) + " of the promises did not hold.");
    return CountFailedChecks() == 0 ? 0 : 1;
}

}  // namespace

}  // namespace updater

int main() {
    return updater::RunDemonstration();
}
