// Performs the updates of the demonstration: a real installation, a real update that the
// application finds on a server and downloads, a feed that it refuses, and a real update to a
// broken version that is rolled back. The exit code is 0 only if all that is promised held.

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
#include "end_to_end/update_request.h"
#include "fixtures/application_names.h"
#include "fixtures/scoped_variable.h"
#include "fixtures/uninstall_entry.h"
#include "fixtures/updater_box.h"
#include "support/extended_length_path.h"
#include "support/file_system.h"
#include "support/status_file.h"
#include "support/text_conversion.h"
#include "support/version_information.h"

namespace updater {

namespace {

// Where the server cuts the connection, in the middle of the download.
constexpr int kCut = 1'500'000;

struct Stage {
    std::filesystem::path directory = L"C:\\\u6F14\u793A " IDENTITY_LOCAL_DIRECTORY L" demo";
    std::filesystem::path installDirectory = directory / L"\u5E94\u7528 \u7A0B\u5E8F";
    std::filesystem::path userData = directory / L"user data";
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

// The team's commands are told as they run.
void Publish(Publisher& publisher, const wchar_t* setup, const wchar_t* program,
             const std::wstring& query = L"") {
    PublishRelease(publisher, setup, program, query);
    Tell("          nginx serves the signed feed, issue " + std::to_string(publisher.issue) + ": " +
         WideToUtf8(publisher.FeedAddress()));
}

// The application looks for the update by itself, and its user has it downloaded.
void Download(WholeUpdate& update, const Stage& stage, const Publisher& publisher,
              const std::string& version) {
    update.job.installDirectory = stage.installDirectory;
    StartWithFeed(update, publisher);
    DownloadOffered(update, version);
    TellCheck(true,
              "the application finds it and downloads it: " + UpdateStatusText(update.application));
}

// The user has it installed, and grants the rights that the prompt asks for.
void BeginUpdate(WholeUpdate& update) {
    update.onRecord = TellRecord;
    RestartToUpdate(update);
    update.AnswerPromptStepByStep();
    update.AwaitRecord("installing");
    update.NoteRecord();
}

// Where the connection was cut, and where the download went on, by the server's own log.
void CheckCut(const Publisher& publisher) {
    const std::vector<std::string> requests = publisher.servers.Requests(kUnruly);
    const bool wentOn =
        requests.size() == 2 &&
        requests.back().find(" 206 \"bytes=" + std::to_string(kCut) + "-\"") != std::string::npos;
    TellCheck(wentOn, "the server cut the connection after " + std::to_string(kCut) +
                          " bytes, and the download went on from there");
}

void UpdateToVersion2(const Stage& stage, Publisher& publisher) {
    Tell("\n2. Version 2.0.0.0 is published, and the application updates itself");
    Publish(publisher, L"v2", L"v2", L"?cut=" + std::to_wstring(kCut) + L"&times=1");
    WholeUpdate update;
    Download(update, stage, publisher, "2.0.0.0");
    CheckCut(publisher);
    BeginUpdate(update);
    const std::uint32_t exitCode = update.AwaitBroker();
    update.NoteRecord();
    TellCheck(exitCode == 0, "the updater ends with exit code " + std::to_string(exitCode));
    TellNoDifferences(FindInventoryDifferences(stage.installDirectory),
                      "every file is as the version's inventory says");
    CheckVersions(stage, L"2.0.0.0");
    CheckUserData(stage);
    CheckRestart(stage, "2.0.0.0");
}

void RefuseTamperedFeed(const Stage& stage, Publisher& publisher) {
    Tell("\n3. Version 3.0.0.0 is published, and somebody changes a byte of its feed");
    Publish(publisher, L"v3-broken", L"v3");
    TamperWithFeed(publisher);
    const std::size_t downloads = publisher.servers.Requests(kUnruly).size();
    WholeUpdate update;
    update.job.installDirectory = stage.installDirectory;
    StartWithFeed(update, publisher);
    constexpr char kRefusal[] = "What the update server offers cannot be trusted";
    AwaitUpdateStatus(update.application, kRefusal);
    TellCheck(true, "the application refuses it:");
    TellLines(UpdateStatusText(update.application));
    CloseApplication(update.application);
    TellCheck(publisher.servers.Requests(kUnruly).size() == downloads, "nothing is downloaded");
    CheckVersions(stage, L"2.0.0.0");
}

void TellErrorBox(WholeUpdate& update) {
    const MessageWindow box = AwaitErrorBox(update);
    update.NoteRecord();
    Tell("          an error box appears, " + Quoted(box.title) + ':');
    TellLines(WideToUtf8(box.text));
    TellCheck(
        box.title == kUpdaterBoxTitle && box.text == ReadStatusReport(update.job.jobDirectory),
        "it shows the record of the failure");
    CloseMessageBox(box);
}

void RollVersion3Back(const Stage& stage, Publisher& publisher) {
    Tell("\n4. Its feed is put right, but the version itself was put together wrongly");
    const TreeContent before = ReadProgramFiles(stage.installDirectory);
    Publish(publisher, L"v3-broken", L"v3");
    WholeUpdate update;
    Download(update, stage, publisher, "3.0.0.0");
    BeginUpdate(update);
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
    const ScopedVariable userData(L"LOCALAPPDATA", stage.userData.native());
    Perform([&] {
        ClearStage(stage);
        Publisher publisher;
        publisher.onCommand = [](const std::string& command) { Tell("        $ " + command); };
        InstallVersion1(stage);
        UpdateToVersion2(stage, publisher);
        RefuseTamperedFeed(stage, publisher);
        RollVersion3Back(stage, publisher);
    });
    Perform([&] { ClearStage(stage); });
    Tell(CountFailedChecks() == 0
             ? "\nAll went as promised: version 2 was downloaded and installed, the changed feed "
               "was "
               "refused, and the broken version 3 left version 2 and the user's files untouched."
             : "\n" + std::to_string(CountFailedChecks()) + " of the promises did not hold.");
    return CountFailedChecks() == 0 ? 0 : 1;
}

}  // namespace

}  // namespace updater

int main() {
    return updater::RunDemonstration();
}
