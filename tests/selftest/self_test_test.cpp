#include "selftest/self_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "fixtures/application_names.h"
#include "fixtures/file_content.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "support/file_system.h"

namespace updater {
namespace {

using testing::ElementsAre;
using testing::Pair;

constexpr char kPassed[] =
    R"({"state":"succeeded","message":"PASS: SHA256, Chinese/space paths, install failure )"
    R"(rollback, account preservation","exitCode":0})";

const std::wstring kFixture = L"\u4E2D\u6587 path with spaces\\";

struct SelfTest : testing::Test {
    TemporaryDirectory directory;
    std::filesystem::path job = directory.path / L"job";
};

TEST_F(SelfTest, PassesAndLeavesItsRestoredFixtureForInspection) {
    EXPECT_EQ(RunSelfTest(job), 0);
    EXPECT_THAT(
        ReadTreeContent(job),
        ElementsAre(Pair(L"backup\\", ""), Pair(L"backup\\" IDENTITY_EXECUTABLE, "old application"),
                    Pair(L"backup\\data\\", ""), Pair(L"backup\\data\\app.so", "old assets"),
                    Pair(L"status.json", kPassed), Pair(kFixture, ""),
                    Pair(kFixture + L"account.db", "account retained"),
                    Pair(kFixture + kExecutableName, "old application"),
                    Pair(kFixture + L"data\\", ""),
                    Pair(kFixture + L"data\\app.so", "old assets")));
}

TEST_F(SelfTest, WritesNothingOutsideTheJobDirectory) {
    RunSelfTest(job);
    RemoveTree(job);
    EXPECT_THAT(ReadTreeContent(directory.path), testing::IsEmpty());
}

TEST_F(SelfTest, PassesInAJobDirectoryWithChineseCharactersAndSpaces) {
    job = directory.path / L"\u4EFB\u52A1 \u76EE\u5F55" / L"job directory \u66F4\u65B0";
    EXPECT_EQ(RunSelfTest(job), 0);
    EXPECT_EQ(ReadFileContent(job / L"status.json"), kPassed);
}

TEST_F(SelfTest, PassesAgainInTheSameJobDirectory) {
    RunSelfTest(job);
    const auto once = ReadTreeContent(job);
    WriteFileContent(job / kFixture / kExecutableName, "an application longer than the fixture's");
    WriteFileContent(job / kFixture / L"account.db", "an account longer than the fixture's");
    WriteFileContent(job / L"backup\\" IDENTITY_EXECUTABLE, "a copy longer than the fixture's");
    EXPECT_EQ(RunSelfTest(job), 0);
    EXPECT_EQ(ReadTreeContent(job), once);
}

// The library is there at the backup, so the restore rightly brings it back.
TEST_F(SelfTest, FailsOverALibraryThatAnInterruptedRunLeftInTheFixture) {
    WriteFileContent(job / kFixture / L"added.dll", "left behind");
    EXPECT_THAT([this] { RunSelfTest(job); }, RaisesError("Rollback fixture validation failed"));
    EXPECT_EQ(ReadFileContent(job / kFixture / L"added.dll"), "left behind");
}

TEST_F(SelfTest, FailsWhenAFileStandsInTheWayOfTheJobDirectory) {
    WriteFileContent(job, "in the way");
    EXPECT_THAT([this] { RunSelfTest(job); }, RaisesFileSystemError("create_directories", job));
    const std::filesystem::path deeper = job / L"deeper";
    EXPECT_THAT([&] { RunSelfTest(deeper); }, RaisesFileSystemError("create_directories", deeper));
    EXPECT_EQ(ReadFileContent(job), "in the way");
}

TEST_F(SelfTest, FailsWhenAFileStandsInTheWayOfTheDataDirectory) {
    const std::filesystem::path fixture = job / L"\u4E2D\u6587 path with spaces";
    for (const std::filesystem::path& file : {fixture, fixture / L"data"}) {
        WriteFileContent(file, "in the way");
        EXPECT_THAT([this] { RunSelfTest(job); },
                    RaisesFileSystemError("create_directories", fixture / L"data"));
        RemoveFile(file);
    }
}

TEST_F(SelfTest, NoticesAFileThatCouldNotBeWrittenInALaterStep) {
    CreateDirectories(job / kFixture / kExecutableName);
    EXPECT_THAT([this] { RunSelfTest(job); }, RaisesError("SHA256 verification failed"));
}

TEST_F(SelfTest, PassesOnTheFailureOfTheBackup) {
    WriteFileContent(job / L"backup", "in the way");
    EXPECT_THAT([this] { RunSelfTest(job); },
                RaisesFileSystemError("create_directories", job / L"backup"));
}

TEST_F(SelfTest, FailsWhenItsStatusCannotBeWritten) {
    CreateDirectories(job / L"status.json");
    EXPECT_THAT([this] { RunSelfTest(job); }, RaisesError("Cannot write update status"));
    EXPECT_EQ(ReadFileContent(job / kFixture / L"account.db"), "account retained");
}

}  // namespace
}  // namespace updater
