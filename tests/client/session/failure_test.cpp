#include <algorithm>

#include "client/last_update.h"
#include "client/session/session_scene.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/patience.h"
#include "fixtures/refusals.h"
#include "support/application_identity.h"
#include "support/file_system.h"

namespace updater {
namespace {

constexpr std::uint32_t kLong = kPatienceMilliseconds;
constexpr char kReadyStep[] = "record\nready\nAuthorized helper is waiting\n0";

bool IsRecord(LPCWSTR path) {
    return std::wstring_view(path).ends_with(L"status.json");
}

struct FailingCall : SessionScene {
    // What a start that fails must not leave.
    void ExpectNothingLeft() const {
        EXPECT_TRUE(!PathExists(dataDirectory / L"updates") ||
                    std::filesystem::is_empty(dataDirectory / L"updates"));
        const auto kept = ReadLastUpdate(dataDirectory);
        EXPECT_TRUE(!kept || kept->told) << "The failure has been told";
    }
};

TEST_F(FailingCall, OfTheUpdatersStartGivesItsNumber) {
    OpenAndDownload();
    ExpectFinalRefusal(doubles::CreateProcessW, FALSE, [this](DWORD error) {
        EXPECT_EQ(AppUpdateStart(session.get(), &report), APP_UPDATE_UPDATER_NOT_STARTED);
        EXPECT_EQ(report.systemError, error);
        EXPECT_THAT(Sentence(), testing::StartsWith("Cannot start the updater "));
        ExpectNothingLeft();
    });
}

TEST_F(FailingCall, OfTheUpdatersCopyTellsAFullDisk) {
    OpenAndDownload();
    const auto expectStartToGive = [this](AppUpdateResult result, DWORD error) {
        EXPECT_EQ(AppUpdateStart(session.get(), &report), result);
        EXPECT_EQ(report.systemError, error);
        ExpectNothingLeft();
    };
    ExpectFinalRefusal(doubles::CopyFileW, FALSE, [&](DWORD error) {
        expectStartToGive(error == ERROR_DISK_FULL ? APP_UPDATE_DISK_FULL : APP_UPDATE_FILE_ERROR,
                          error);
    });
    constexpr DWORD kQuotaExceeded = 1295;
    ExpectFinalRefusal(doubles::CopyFileW, FALSE,
                       [&](DWORD error) { expectStartToGive(APP_UPDATE_DISK_FULL, error); },
                       {ERROR_HANDLE_DISK_FULL, kQuotaExceeded});
}

TEST_F(FailingCall, OfTheNoteOfTheUpdateKeepsItFromBeingStarted) {
    OpenAndDownload();
    const ScopedReplacement starts(doubles::CreateProcessW,
                                   [](auto&&...) { return FailWith(ERROR_GEN_FAILURE); });
    const ScopedReplacement full(doubles::WriteFile,
                                 [](auto&&...) { return FailWith(ERROR_DISK_FULL); });
    EXPECT_EQ(AppUpdateStart(session.get(), &report), APP_UPDATE_DISK_FULL);
    EXPECT_THAT(Sentence(), testing::EndsWith("last-update.json"));
    ExpectNothingLeft();
}

TEST_F(FailingCall, OfTheJobsNameEndsTheStart) {
    OpenAndDownload();
    const ScopedReplacement refusing(doubles::CoCreateGuid, [](GUID*) { return E_FAIL; });
    EXPECT_EQ(AppUpdateStart(session.get(), &report), APP_UPDATE_SYSTEM_ERROR);
    EXPECT_EQ(Sentence(), "Cannot create update job identity");
    ExpectNothingLeft();
}

TEST_F(FailingCall, OfTheForegroundChangesNothing) {
    OpenAndDownload();
    DWORD handed = 0;
    DWORD started = 0;
    const ScopedReplacement starting(
        doubles::CreateProcessW,
        [&started](LPCWSTR program, LPWSTR line, auto process, auto thread, BOOL inherit,
                   DWORD flags, LPVOID environment, LPCWSTR directory, auto startup, auto result) {
            EXPECT_FALSE(inherit);
            const BOOL done = CreateProcessW(program, line, process, thread, inherit, flags,
                                             environment, directory, startup, result);
            started = result->dwProcessId;
            return done;
        });
    const ScopedReplacement foreground(doubles::AllowSetForegroundWindow, [&handed](DWORD id) {
        handed = id;
        return FailWith(ERROR_ACCESS_DENIED);
    });
    EXPECT_EQ(AppUpdateStart(session.get(), &report), APP_UPDATE_OK);
    EXPECT_NE(handed, 0U);
    EXPECT_EQ(handed, started);
    EndUpdater(0);
}

TEST_F(FailingCall, OfTheCancelMarkerStillKeepsTheUpdateFromBeingReady) {
    StartUpdate();
    {
        const ScopedReplacement refusing(doubles::MoveFileExW,
                                         [](auto&&...) { return FailWith(ERROR_ACCESS_DENIED); });
        AppUpdateCancel(session.get());
    }
    EXPECT_FALSE(PathExists(JobDirectory() / L"cancel"));
    Step(kReadyStep);
    EXPECT_EQ(Wait(600), APP_UPDATE_NO_CHANGE);
    EndUpdater(0);
}

TEST_F(FailingCall, OfTheToldMarkStillTellsTheOutcome) {
    StartUpdate();
    Step("record\nfailed\nX\n1");
    EndUpdater(1);
    const ScopedReplacement refusing(doubles::MoveFileExW,
                                     [](auto&&...) { return FailWith(ERROR_ACCESS_DENIED); });
    EXPECT_EQ(Wait(kLong), APP_UPDATE_FAILED);
    // Once more, but as that of an update beside which the application stayed.
    EXPECT_EQ(TakeOutcome(), APP_UPDATE_OK);
    EXPECT_EQ(outcome.result, APP_UPDATE_FAILED);
}

TEST_F(FailingCall, OfTheMutexMeansAnInstallationOnlyIfItIsDenied) {
    for (const DWORD error : kRefusals) {
        const ScopedReplacement refusing(
            doubles::OpenMutexW, [error](auto&&...) { return FailWith<HANDLE>(error, nullptr); });
        EXPECT_EQ(AppUpdateIsBeingInstalled() != 0, error == ERROR_ACCESS_DENIED);
    }
}

using SharedStore = FailingCall;

// So that no two instances of the application read and write it at once.
TEST_F(SharedStore, IsLockedWhileItIsReadAndWritten) {
    Publish(feed);
    Open();
    int uses = 0;
    const auto isLocked = [&](LPCWSTR path) {
        const std::filesystem::path name = std::filesystem::path(path).filename();
        if (name == L"update-state.json" || name == L"update-feed.json") {
            ++uses;
            EXPECT_TRUE(PathExists(dataDirectory / L"update.lock"));
        }
    };
    const ScopedReplacement opening(doubles::CreateFileW, [&](LPCWSTR path, auto... rest) {
        isLocked(path);
        return CreateFileW(path, rest...);
    });
    const ScopedReplacement moving(doubles::MoveFileExW,
                                   [&](LPCWSTR from, LPCWSTR to, DWORD flags) {
                                       isLocked(to);
                                       return MoveFileExW(from, to, flags);
                                   });
    EXPECT_EQ(Check(), APP_UPDATE_OK);
    EXPECT_EQ(uses, 6);
    EXPECT_FALSE(PathExists(dataDirectory / L"update.lock"));
    session.reset();
    Open();
    EXPECT_EQ(AppUpdateTidyUp(session.get(), &report), APP_UPDATE_OK);
    EXPECT_EQ(uses, 8);
    EXPECT_FALSE(PathExists(dataDirectory / L"update.lock"));
}

using WatchedRecord = FailingCall;

TEST_F(WatchedRecord, IsNotOpenedWhileItChanges) {
    StartUpdate();
    Step(kReadyStep);
    int opened = 0;
    DWORD looks = 0;
    const ScopedReplacement opening(doubles::CreateFileW, [&](LPCWSTR path, auto... rest) {
        opened += IsRecord(path) ? 1 : 0;
        return CreateFileW(path, rest...);
    });
    {
        const ScopedReplacement looking(doubles::FindFirstFileExW, [&looks](LPCWSTR path,
                                                                            auto level, LPVOID data,
                                                                            auto... rest) {
            HANDLE search = FindFirstFileExW(path, level, data, rest...);
            if (IsRecord(path)) {
                static_cast<WIN32_FIND_DATAW*>(data)->ftLastWriteTime.dwLowDateTime = ++looks / 3;
            }
            return search;
        });
        // Every third look, 100 ms after one another, finds another record.
        const ScopedReplacement clock(doubles::GetTickCount64,
                                      [&looks] { return 1000 + 50ULL * looks; });
        EXPECT_EQ(Wait(1500), APP_UPDATE_NO_CHANGE);
    }
    EXPECT_GE(looks, 30U);
    EXPECT_EQ(opened, 0);
    EXPECT_EQ(Wait(kLong), APP_UPDATE_OK);
    EXPECT_EQ(opened, 1);
    EXPECT_EQ(Wait(600), APP_UPDATE_NO_CHANGE);
    EXPECT_EQ(opened, 1) << "Once for each record";
    EndUpdater(0);
}

TEST_F(WatchedRecord, IsReadSuchThatTheUpdaterMayReplaceIt) {
    StartUpdate();
    Step(kReadyStep);
    DWORD share = 0;
    const ScopedReplacement opening(doubles::CreateFileW,
                                    [&](LPCWSTR path, DWORD access, DWORD sharing, auto... rest) {
                                        share = IsRecord(path) ? sharing : share;
                                        return CreateFileW(path, access, sharing, rest...);
                                    });
    EXPECT_EQ(Wait(kLong), APP_UPDATE_OK);
    EXPECT_EQ(share, static_cast<DWORD>(FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE));
    EndUpdater(0);
}

TEST_F(WatchedRecord, MakesNobodyReadyWhenTheUpdaterEndsMeanwhile) {
    StartUpdate();
    Step(kReadyStep);
    bool ended = false;
    const ScopedReplacement opening(doubles::CreateFileW, [&](LPCWSTR path, auto... rest) {
        if (IsRecord(path) && !ended) {
            ended = true;
            EndUpdater(1);
            // The process is gone a little after its last word.
            const SuspendedReplacement waiting(doubles::WaitForSingleObject);
            Sleep(1000);
        }
        return CreateFileW(path, rest...);
    });
    EXPECT_EQ(Wait(kLong), APP_UPDATE_UPDATER_ENDED);
    EXPECT_EQ(state, APP_UPDATE_STATE_STARTED);
}

}  // namespace
}  // namespace updater
