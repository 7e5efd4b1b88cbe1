#include <gtest/gtest.h>

#include <ostream>

#include "end_to_end/update_expectations.h"
#include "fixtures/directory_link.h"
#include "fixtures/file_content.h"
#include "support/file_system.h"

namespace updater {

namespace {

constexpr char kRestored[] = "; previous program restored";

// Updates that fail after the application has exited: it is started again, and its user is told.
struct FailedUpdate : UpdateTest {
    void ExpectFailure(const std::string& message) {
        CarryOutUpdate();

        ExpectErrorBox(*this, RecordText("failed", message, 1));
        ExpectRestart(job.installDirectory, "1.0.0.0");
    }
};

struct RejectedSetup {
    const char* name;
    const wchar_t* setup;
    const wchar_t* version;
    const char* message;
};

std::ostream& operator<<(std::ostream& stream, const RejectedSetup& rejected) {
    return stream << rejected.name;
}

struct UpdateToRejectedSetup : FailedUpdate, testing::WithParamInterface<RejectedSetup> {};

TEST_P(UpdateToRejectedSetup, PutsThePreviousProgramBack) {
    const RejectedSetup& rejected = GetParam();
    OfferSetup(rejected.setup, rejected.version);

    ExpectFailure(std::string(rejected.message) + kRestored);

    ExpectNothingChanged(*this);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, UpdateToRejectedSetup,
    testing::Values(
        RejectedSetup{"AnotherVersion", L"v2", L"9.9.9.9", "Installed executable version mismatch"},
        RejectedSetup{"VersionInAnotherForm", L"v2", L"2.0.0",
                      "Installed executable version mismatch"},
        RejectedSetup{"SetupThatRefuses", L"v2-refusing", L"2.0.0.0",
                      "Inno Setup did not complete; exit code=1"},
        RejectedSetup{"SetupThatEndsHalfWay", L"v2-exit-code", L"2.0.0.0",
                      "Inno Setup did not complete; exit code=7"},
        RejectedSetup{"MissingInventory", L"v2-missing-inventory", L"2.0.0.0",
                      "Installed program inventory is missing"},
        RejectedSetup{"EmptyInventory", L"v2-empty-inventory", L"2.0.0.0",
                      "Installed program inventory is empty"},
        RejectedSetup{"InvalidInventory", L"v2-invalid-inventory", L"2.0.0.0",
                      "Invalid program inventory"},
        RejectedSetup{"TraversingInventory", L"v2-traversing-inventory", L"2.0.0.0",
                      "Invalid program inventory traversal"},
        RejectedSetup{"RootedInventory", L"v2-rooted-inventory", L"2.0.0.0",
                      "Invalid program inventory path"},
        RejectedSetup{
            "MismatchingInventory", L"v3-broken", L"3.0.0.0",
            R"(Installed program checksum mismatch: data\\maps\\old harbour\\quay 1.txt)"}),
    [](const auto& suite) { return std::string(suite.param.name); });

TEST_F(FailedUpdate, PutsThePreviousProgramBackWhenTheSetupIsNoProgram) {
    const std::filesystem::path noProgram = InWorkspace(L"没有 程序.exe");
    WriteFileContent(noProgram, "neither a program nor a script\n");
    OfferSetupFile(noProgram, L"2.0.0.0");

    ExpectFailure(std::string("Process launch failed: 193") + kRestored);

    ExpectNothingChanged(*this);
}

TEST_F(FailedUpdate, KeepsWhatTheSetupAddedBesideTheProgram) {
    OfferSetup(L"v2-adding", L"9.9.9.9");

    ExpectFailure(std::string("Installed executable version mismatch") + kRestored);

    ExpectNothingChanged(*this);
    EXPECT_TRUE(PathExists(job.installDirectory / L"notes.txt"));
    EXPECT_TRUE(PathExists(job.installDirectory / L"empty directory"));
}

TEST_F(FailedUpdate, KeepsTheSetupsRegisteredVersionWhenThereWasNoneBefore) {
    UninstallEntry unversioned = ReadUninstallEntry();
    ASSERT_EQ(unversioned.erase(kDisplayVersion), 1U);
    ReplaceUninstallEntry(unversioned);
    OfferSetup(L"v2", L"9.9.9.9");

    ExpectFailure(std::string("Installed executable version mismatch") + kRestored);

    EXPECT_EQ(RegisteredVersion(), L"2.0.0.0");
    EXPECT_EQ(FindDifferences(programBefore, ReadProgramFiles(job.installDirectory)),
              std::vector<std::string>());
}

// The setup program has replaced it when it fails. Whether the file that is put back is read-only
// again is left open: Windows copies the attribute to an existing file, Wine does not.
TEST_F(FailedUpdate, PutsThePreviousProgramBackAroundAReadOnlyFile) {
    const std::filesystem::path library = job.installDirectory / L"engine.dll";
    SetFileAttributesW(library.c_str(), FILE_ATTRIBUTE_READONLY);
    OfferSetup(L"v2-exit-code", L"2.0.0.0");

    ExpectFailure(std::string("Inno Setup did not complete; exit code=7") + kRestored);

    ExpectNothingChanged(*this);
}

struct LinkedDirectory {
    const char* name;
    const wchar_t* link;
    const char* message;
};

std::ostream& operator<<(std::ostream& stream, const LinkedDirectory& linked) {
    return stream << linked.name;
}

struct UpdateOfLinkedInstallation : FailedUpdate, testing::WithParamInterface<LinkedDirectory> {};

TEST_P(UpdateOfLinkedInstallation, FailsBeforeAnythingIsInstalled) {
    const LinkedDirectory& linked = GetParam();
    const std::filesystem::path target = InWorkspace(L"别处 的目录");
    WriteFileContent(target / L"precious.txt", "not the program's");
    const DirectoryLink link(job.installDirectory / linked.link, target);

    ExpectFailure(linked.message);

    EXPECT_EQ(ReadFileContent(target / L"precious.txt"), "not the program's");
    EXPECT_EQ(RegisteredVersion(), L"1.0.0.0");
}

INSTANTIATE_TEST_SUITE_P(
    Places, UpdateOfLinkedInstallation,
    testing::Values(LinkedDirectory{"InTheInstallationDirectory", L"日志 logs",
                                    "Reparse points are not supported in installation directory"},
                    LinkedDirectory{"InTheDataTree", L"data\\fonts\\链接 link",
                                    "Reparse points are not supported in program assets"}),
    [](const auto& suite) { return std::string(suite.param.name); });

}  // namespace

}  // namespace updater
