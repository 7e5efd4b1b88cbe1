#include "client/last_update.h"
#include "client/session/session_scene.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/programs/running_program.h"
#include "support/application_identity.h"
#include "support/file_system.h"
#include "support/text_conversion.h"

namespace updater {
namespace {

using TidiedDirectory = SessionScene;

constexpr wchar_t kJob[] = L"{01234567-89AB-CDEF-0123-456789ABCDEF}";
constexpr wchar_t kOldJob[] = L"{01234567-89AB-CDEF-0123-000000000000}";

TEST_F(TidiedDirectory, KeepsTheOfferedDownloadAndTheLastJob) {
    OpenAndDownload();
    const std::filesystem::path downloads = dataDirectory / L"downloads";
    const std::filesystem::path jobs = dataDirectory / L"updates";
    const std::wstring offered = Utf8ToWide(feed.sha256);
    const std::wstring other(64, L'a');
    for (const std::wstring& name :
         {offered + L".part", other + L".exe", other + L".part", other + L".json",
          std::wstring(L"notes.txt"), std::wstring(64, L'B') + L".exe", other + L"a.exe"}) {
        WriteFileContent(downloads / name, "x");
    }
    WriteFileContent(jobs / kJob / kUpdaterExecutable, "x");
    WriteFileContent(jobs / kOldJob / L"deep" / L"status.json", "x");
    WriteFileContent(jobs / L"notes" / L"x", "x");
    WriteLastUpdate(dataDirectory, {kJob, {{2, 0, 0, 0}}, true});
    EXPECT_EQ(AppUpdateTidyUp(session.get(), &report), APP_UPDATE_OK);
    EXPECT_EQ(Sentence(), "What earlier updates left is deleted");
    std::vector<std::wstring> left;
    for (const auto& [path, content] : ReadTreeContent(dataDirectory)) {
        const bool isOfBoth = path.starts_with(L"downloads\\") || path.starts_with(L"updates\\");
        if (isOfBoth && path != L"downloads\\" && path != L"updates\\") {
            left.push_back(path);
        }
    }
    EXPECT_THAT(left,
                testing::UnorderedElementsAre(
                    L"downloads\\" + offered + L".exe", L"downloads\\" + offered + L".part",
                    L"downloads\\notes.txt", L"downloads\\" + std::wstring(64, L'B') + L".exe",
                    L"downloads\\" + other + L"a.exe", std::wstring(L"updates\\") + kJob + L"\\",
                    std::wstring(L"updates\\") + kJob + L"\\" + kUpdaterExecutable,
                    L"updates\\notes\\", L"updates\\notes\\x"));
}

TEST_F(TidiedDirectory, KeepsBeforeACheckWhatTheLastOneOffered) {
    OpenAndDownload();
    session.reset();
    Open();
    EXPECT_EQ(AppUpdateTidyUp(session.get(), &report), APP_UPDATE_OK);
    const std::filesystem::path setupFile =
        dataDirectory / L"downloads" / (Utf8ToWide(feed.sha256) + L".exe");
    EXPECT_TRUE(PathExists(setupFile));
    // The kept feed has its signature.
    WriteFileContent(dataDirectory / L"update-state.json", "damaged");
    EXPECT_EQ(AppUpdateTidyUp(session.get(), &report), APP_UPDATE_OK);
    EXPECT_TRUE(PathExists(setupFile));
}

// Writes a file that was last changed so many minutes ago.
void WriteOldFile(const std::filesystem::path& file, std::uint64_t minutes) {
    WriteFileContent(file, "x");
    FILETIME time{};
    GetSystemTimeAsFileTime(&time);
    const std::uint64_t units = (std::uint64_t{time.dwHighDateTime} << 32U | time.dwLowDateTime) -
                                minutes * 60 * 10'000'000;
    time = {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32U)};
    const UniqueHandle handle = HoldFile(file, FILE_WRITE_ATTRIBUTES);
    ASSERT_TRUE(SetFileTime(handle.get(), nullptr, nullptr, &time));
}

TEST_F(TidiedDirectory, KeepsNoOldDrafts) {
    constexpr std::uint64_t kDay = 24ULL * 60;
    OpenAndDownload();
    const std::wstring offered = L"downloads\\" + Utf8ToWide(feed.sha256);
    for (const std::wstring& name :
         {std::wstring(L"update-state.json"), std::wstring(L"update-feed.json"),
          std::wstring(L"last-update.json"), offered + L".json"}) {
        SCOPED_TRACE(testing::PrintToString(name));
        WriteOldFile(dataDirectory / (name + L".10-20.tmp"), kDay + 60);
        WriteOldFile(dataDirectory / (name + L".10-21.tmp"), kDay - 60);
        WriteOldFile(dataDirectory / (name + L".10-x.tmp"), 9 * kDay);
        EXPECT_EQ(AppUpdateTidyUp(session.get(), &report), APP_UPDATE_OK);
        EXPECT_FALSE(PathExists(dataDirectory / (name + L".10-20.tmp")));
        EXPECT_TRUE(PathExists(dataDirectory / (name + L".10-21.tmp")));
        EXPECT_TRUE(PathExists(dataDirectory / (name + L".10-x.tmp")));
    }
    WriteOldFile(dataDirectory / L"notes.json.10-20.tmp", 9 * kDay);
    EXPECT_EQ(AppUpdateTidyUp(session.get(), &report), APP_UPDATE_OK);
    EXPECT_TRUE(PathExists(dataDirectory / L"notes.json.10-20.tmp"));
}

TEST_F(TidiedDirectory, KeepsAllOfAJobWhoseUpdaterRuns) {
    Open();
    const std::filesystem::path job = dataDirectory / L"updates" / kOldJob;
    const RunningProgram updater(job / kUpdaterExecutable);
    WriteFileContent(job / L"status.json", "x");
    EXPECT_EQ(AppUpdateTidyUp(session.get(), &report), APP_UPDATE_OK);
    EXPECT_TRUE(PathExists(job / L"status.json"));
}

TEST_F(TidiedDirectory, KeepsNoJobWhereNoneIsKnownToBeTheLast) {
    Open();
    WriteFileContent(dataDirectory / L"updates" / kOldJob / L"status.json", "x");
    EXPECT_EQ(AppUpdateTidyUp(session.get(), &report), APP_UPDATE_OK);
    EXPECT_FALSE(PathExists(dataDirectory / L"updates" / kOldJob));
}

TEST_F(TidiedDirectory, IsFineWhenThereIsNothing) {
    Open();
    EXPECT_EQ(AppUpdateTidyUp(session.get(), &report), APP_UPDATE_OK);
}

}  // namespace
}  // namespace updater
