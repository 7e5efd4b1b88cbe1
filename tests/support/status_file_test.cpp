#include "support/status_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/open_handles.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "fixtures/updater_box.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/windows_api.h"

namespace updater {

namespace {

using testing::ElementsAre;
using testing::Pair;

void ExpectCannotWrite(const std::filesystem::path& jobDirectory) {
    EXPECT_THAT([&] { WriteUpdateStatus(jobDirectory, kStateFailed, "new", 1); },
                RaisesError("Cannot write update status"));
}

TEST(WriteUpdateStatus, StoresTheRecordAndNothingElse) {
    const TemporaryDirectory job;
    WriteUpdateStatus(job.path, kStateFailed,
                      "Installed program inventory is missing; previous program restored", 1);
    EXPECT_THAT(
        ReadTreeContent(job.path),
        ElementsAre(Pair(L"status.json",
                         R"({"state":"failed","message":"Installed program inventory is missing; )"
                         R"(previous program restored","exitCode":1})")));
}

TEST(WriteUpdateStatus, EveryRecordOfTheUpdaterIsOneJsonLine) {
    struct Record {
        std::string state;
        std::string message;
        std::int32_t exitCode;
    };
    const std::vector<Record> records = {
        {"cancelled", "Administrator authorization cancelled", 1223},
        {"failed", "Authorization failed", 2},
        {"failed", "Upgrade helper did not become ready", 1},
        {"ready", "Authorized helper is waiting for application exit", 0},
        {"cancelled", "Application did not exit; update cancelled", 2},
        {"authorized", "Administrator authorization accepted", 0},
        {"cancelled", "Application remained open; installation cancelled", 0},
        {"installing", "Installing verified package", 0},
        {"succeeded", "Installed version 2.0.0.0", 0},
        {"failed", "Setup failed; previous program restored", 1},
        {"failed", "Setup failed; restore version mismatch", 1},
        {"succeeded",
         "PASS: SHA256, Chinese/space paths, install failure rollback, account preservation", 0},
        {"failed", "filesystem error: canonical: File not found [C:\\\xE5\x8D\x87 \"x\"]", 1},
    };
    const TemporaryDirectory job;
    for (const Record& record : records) {
        WriteUpdateStatus(job.path, record.state, record.message, record.exitCode);
        const std::string content = ReadFileContent(job.path / L"status.json");
        const nlohmann::json expected = {
            {"state", record.state}, {"message", record.message}, {"exitCode", record.exitCode}};
        EXPECT_EQ(nlohmann::json::parse(content), expected);
        EXPECT_EQ(content.find_first_of("\r\n"), std::string::npos) << content;
        EXPECT_EQ(content.front(), '{') << "no byte-order mark";
    }
}

TEST(WriteUpdateStatus, StateWordsAreThoseOfTheContract) {
    EXPECT_THAT(
        (std::vector<std::string>{kStateAuthorized, kStateReady, kStateInstalling, kStateSucceeded,
                                  kStateFailed, kStateCancelled}),
        ElementsAre("authorized", "ready", "installing", "succeeded", "failed", "cancelled"));
}

TEST(WriteUpdateStatus, PathsAndQuotesInTheMessageAreEscaped) {
    const TemporaryDirectory job;
    WriteUpdateStatus(job.path, kStateFailed, R"(C:\Program Files\x "y")", 1);
    EXPECT_EQ(ReadFileContent(job.path / kStatusFile),
              R"({"state":"failed","message":"C:\\Program Files\\x \"y\"","exitCode":1})");
}

TEST(WriteUpdateStatus, LineFeedsReturnsAndTabsBecomeOneSpaceEach) {
    const TemporaryDirectory job;
    WriteUpdateStatus(job.path, kStateFailed, "a\nb\rc\td", 1);
    EXPECT_EQ(ReadFileContent(job.path / kStatusFile),
              R"({"state":"failed","message":"a b c d","exitCode":1})");
}

TEST(WriteUpdateStatus, ChineseCharactersKeepTheirBytes) {
    const TemporaryDirectory job;
    WriteUpdateStatus(job.path, kStateFailed, "\xE5\x8D\x87\xE7\xBA\xA7", 1);
    EXPECT_EQ(ReadFileContent(job.path / kStatusFile),
              "{\"state\":\"failed\",\"message\":\"\xE5\x8D\x87\xE7\xBA\xA7\",\"exitCode\":1}");
}

TEST(WriteUpdateStatus, ExitCodesAreStoredAsTheyAre) {
    const TemporaryDirectory job;
    for (const std::int32_t exitCode :
         {1223, 0, 2, -1073741819, std::numeric_limits<std::int32_t>::min()}) {
        WriteUpdateStatus(job.path, kStateCancelled, "m", exitCode);
        EXPECT_EQ(
            ReadFileContent(job.path / kStatusFile),
            R"({"state":"cancelled","message":"m","exitCode":)" + std::to_string(exitCode) + "}");
    }
}

TEST(WriteUpdateStatus, WritingTwiceLeavesOnlyTheSecondRecord) {
    const TemporaryDirectory job;
    WriteUpdateStatus(job.path, kStateInstalling, std::string(10000, 'x'), 0);
    WriteUpdateStatus(job.path, kStateSucceeded, "short", 0);
    EXPECT_THAT(ReadTreeContent(job.path),
                ElementsAre(Pair(L"status.json",
                                 R"({"state":"succeeded","message":"short","exitCode":0})")));
}

TEST(WriteUpdateStatus, AJobDirectoryThatDoesNotExistCannotBeWrittenTo) {
    const TemporaryDirectory directory;
    ExpectCannotWrite(directory.path / L"missing");
    EXPECT_THAT(ReadTreeContent(directory.path), ElementsAre()) << "no directory is created";
}

TEST(WriteUpdateStatus, AFileInPlaceOfTheJobDirectoryCannotBeWrittenTo) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"job", "content");
    ExpectCannotWrite(directory.path / L"job");
}

TEST(WriteUpdateStatus, ADirectoryInPlaceOfTheStatusFileLeavesTheTemporaryFile) {
    const TemporaryDirectory job;
    CreateDirectories(job.path / L"status.json");
    ExpectCannotWrite(job.path);
    EXPECT_THAT(
        ReadTreeContent(job.path),
        ElementsAre(Pair(L"status.json\\", ""),
                    Pair(L"status.tmp", R"({"state":"failed","message":"new","exitCode":1})")));
}

// Only the move decides, so whatever could be left under the temporary name is moved into place.
TEST(WriteUpdateStatus, AStaleTemporaryFileThatCannotBeRewrittenIsMovedIntoPlace) {
    const TemporaryDirectory job;
    WriteFileContent(job.path / L"status.tmp", "stale");
    UniqueHandle reader =
        HoldFile(job.path / L"status.tmp", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE);
    WriteUpdateStatus(job.path, kStateFailed, "new", 1);
    reader.reset();
    EXPECT_THAT(ReadTreeContent(job.path), ElementsAre(Pair(L"status.json", "stale")));
}

TEST(WriteUpdateStatus, AStaleTemporaryFileIsOverwritten) {
    const TemporaryDirectory job;
    WriteFileContent(job.path / L"status.tmp", std::string(10000, 'x'));
    WriteUpdateStatus(job.path, kStateReady, "m", 0);
    EXPECT_THAT(
        ReadTreeContent(job.path),
        ElementsAre(Pair(L"status.json", R"({"state":"ready","message":"m","exitCode":0})")));
}

TEST(WriteUpdateStatus, OtherProcessesMayHaveTheTemporaryFileOpen) {
    const TemporaryDirectory job;
    WriteFileContent(job.path / L"status.tmp", "stale");
    const UniqueHandle reader = HoldFile(job.path / L"status.tmp", GENERIC_READ,
                                         FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
    WriteUpdateStatus(job.path, kStateReady, "m", 0);
    EXPECT_EQ(ReadFileContent(job.path / kStatusFile),
              R"({"state":"ready","message":"m","exitCode":0})");
}

TEST(WriteUpdateStatus, AnOldRecordThatIsHeldOpenStays) {
    const TemporaryDirectory job;
    WriteUpdateStatus(job.path, kStateReady, "old", 0);
    const UniqueHandle reader = HoldFile(job.path / kStatusFile, GENERIC_READ, FILE_SHARE_READ);
    ExpectCannotWrite(job.path);
    EXPECT_EQ(ReadFileContent(job.path / kStatusFile),
              R"({"state":"ready","message":"old","exitCode":0})");
}

TEST(WriteUpdateStatus, NoHandleStaysOpen) {
    const TemporaryDirectory job;
    const auto writeAll = [&] {
        WriteUpdateStatus(job.path, kStateReady, "m", 0);
        ExpectCannotWrite(job.path / L"missing");
        ReadStatusReport(job.path);
        ReadStatusReport(job.path / L"missing");
    };
    ExpectNoHandleLeft(writeAll);
}

TEST(ReadStatusReport, IsHeadingRecordTwoLineFeedsAndDirectoryCodePointByCodePoint) {
    const TemporaryDirectory job;
    WriteUpdateStatus(job.path, kStateFailed, "\xE5\x8D\x87\xE7\xBA\xA7 \"x\"", 1);
    EXPECT_EQ(ReadStatusReport(job.path),
              kUpdaterBoxHeading +
                  L"{\"state\":\"failed\",\"message\":\"\u5347\u7EA7 \\\"x\\\"\"," +
                  L"\"exitCode\":1}" + L"\n\n" + job.path.native());
}

TEST(ReadStatusReport, WithoutAStatusFileItsPlaceIsEmpty) {
    const TemporaryDirectory job;
    EXPECT_EQ(ReadStatusReport(job.path), kUpdaterBoxHeading + L"\n\n" + job.path.native());
}

TEST(ReadStatusReport, AFileThatCannotBeReadLeavesItsPlaceEmpty) {
    const TemporaryDirectory job;
    CreateDirectories(job.path / kStatusFile);
    EXPECT_EQ(ReadStatusReport(job.path), kUpdaterBoxHeading + L"\n\n" + job.path.native());

    const TemporaryDirectory lockedJob;
    WriteFileContent(lockedJob.path / kStatusFile, "content");
    const UniqueHandle exclusive = HoldFile(lockedJob.path / kStatusFile);
    EXPECT_EQ(ReadStatusReport(lockedJob.path),
              kUpdaterBoxHeading + L"\n\n" + lockedJob.path.native());
}

TEST(ReadStatusReport, AFileThatAnotherProcessHasOpenForWritingIsRead) {
    const TemporaryDirectory job;
    WriteFileContent(job.path / kStatusFile, "content");
    const UniqueHandle writer = HoldFile(job.path / kStatusFile, GENERIC_READ | GENERIC_WRITE,
                                         FILE_SHARE_READ | FILE_SHARE_WRITE);
    EXPECT_EQ(ReadStatusReport(job.path), kUpdaterBoxHeading + L"content\n\n" + job.path.native());
}

TEST(ReadStatusReport, TheFileIsShownByteForByteAndNotParsed) {
    const std::vector<std::pair<std::string, std::wstring>> cases = {
        {"", L""},
        {"no JSON\r\n\x1A\t", L"no JSON\r\n\x1A\t"},
        {std::string("a\0b", 3), std::wstring(L"a\0b", 3)},
        {"\xEF\xBB\xBF{}", L"\uFEFF{}"},
        {"\xFF", L"\uFFFD"},
        {std::string(70000, 'x') + "\xE5\x8D\x87", std::wstring(70000, L'x') + L"\u5347"},
    };
    const TemporaryDirectory job;
    for (const auto& [content, shown] : cases) {
        WriteFileContent(job.path / kStatusFile, content);
        EXPECT_EQ(ReadStatusReport(job.path),
                  kUpdaterBoxHeading + shown + L"\n\n" + job.path.native());
    }
}

TEST(ReadStatusReport, TheDirectoryIsShownAsGiven) {
    for (const wchar_t* directory : {L"no such\\..\\directory\\", L"a/b", L"\xD800"}) {
        EXPECT_EQ(ReadStatusReport(directory), kUpdaterBoxHeading + L"\n\n" + directory);
    }
}

}  // namespace

}  // namespace updater
