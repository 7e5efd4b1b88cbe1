// Lets every call to Windows that a session makes fail once, each in a session of its own, and
// looks at what becomes of it.

#include <algorithm>
#include <array>
#include <set>
#include <tuple>
#include <utility>

#include "client/session/session_scene.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/open_handles.h"
#include "support/file_system.h"
#include "support/status_file.h"

namespace updater {
namespace {

struct FaultSweep : SessionScene {
    FaultSweep() {
        TheServer().download = [this, real = TheServer().download](
                                   const DownloadOrder& order, const Cancellation& cancellation,
                                   const DownloadProgress& progress) {
            isCounting = false;
            DownloadedSetup downloaded = real(order, cancellation, progress);
            isCounting = true;
            return downloaded;
        };
    }

    // Instead of a process: an event, which is signalled when "it" has ended.
    BOOL StartProcess(LPPROCESS_INFORMATION started) {
        const bool wasCounting = std::exchange(isCounting, false);
        process = OwnHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        started->hThread = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        isCounting = wasCounting;
        return DuplicateHandle(GetCurrentProcess(), process.get(), GetCurrentProcess(),
                               &started->hProcess, 0, FALSE, DUPLICATE_SAME_ACCESS);
    }

    // One call of the interface; false when it has failed.
    bool Took(AppUpdateResult result) {
        EXPECT_EQ(report.result, result);
        if (result == APP_UPDATE_OK || result == APP_UPDATE_NO_CHANGE ||
            result == APP_UPDATE_NO_OUTCOME) {
            return true;
        }
        EXPECT_TRUE(kKinds.contains(result)) << result << ": " << Sentence();
        EXPECT_NE(Sentence(), "");
        return false;
    }

    bool OpenOne() {
        AppUpdateSession* opened = nullptr;
        const AppUpdateResult result = AppUpdateOpen(&settings, &opened, &report);
        EXPECT_EQ(result == APP_UPDATE_OK, opened != nullptr);
        session.reset(opened);
        return Took(result);
    }

    void WriteRecord() {
        isCounting = false;
        WriteUpdateStatus(JobDirectory(), kStateFailed, "X", 1);
        SetEvent(process.get());
        isCounting = true;
    }

    bool UseAll() {
        if (!OpenOne() || !Took(AppUpdateTidyUp(session.get(), &report)) || !Took(Check()) ||
            !Took(AppUpdateDownload(session.get(), nullptr, nullptr, &report)) ||
            !Took(AppUpdateStart(session.get(), &report))) {
            return false;
        }
        WriteRecord();
        // The outcome, or what became of reading it.
        const AppUpdateResult end = Wait(kWaitLimit);
        EXPECT_TRUE(end == APP_UPDATE_FAILED || end == APP_UPDATE_UPDATER_ENDED ||
                    end == APP_UPDATE_NO_CHANGE)
            << end;
        return end == APP_UPDATE_FAILED && TellAtNextStart();
    }

    // Another update, whose outcome the next session tells.
    bool TellAtNextStart() {
        if (!Took(AppUpdateStart(session.get(), &report))) {
            return false;
        }
        WriteRecord();
        AppUpdateCancel(session.get());
        return OpenOne() && Took(TakeOutcome()) && Took(AppUpdateTidyUp(session.get(), &report));
    }

    void RunOnce() {
        const ScopedReplacement time(doubles::GetTickCount64, [this] { return now += 300; });
        UseAll();
        session.reset();
        process.reset();
    }

    void ExpectNoDraftLeft() const {
        if (!PathExists(dataDirectory)) {
            return;
        }
        for (const auto& [path, content] : ReadTreeContent(dataDirectory)) {
            EXPECT_FALSE(path.ends_with(L".tmp")) << testing::PrintToString(path);
        }
    }

    template <typename Result, typename... Arguments>
    void Sweep(Replacement<Result(Arguments...)>& function, Result (*real)(Arguments...),
               const char* name, Result refusal) {
        SCOPED_TRACE(name);
        const std::size_t handles = CountOpenHandles();
        int failing = 0;
        int calls = 0;
        do {
            ++failing;
            SCOPED_TRACE(failing);
            RemoveTree(dataDirectory);
            Publish(feed);
            calls = 0;
            {
                const ScopedReplacement counting(function, [&](Arguments... arguments) -> Result {
                    if (isCounting && ++calls == failing) {
                        return FailWith(ERROR_GEN_FAILURE, refusal);
                    }
                    return real(arguments...);
                });
                isCounting = true;
                RunOnce();
                isCounting = false;
            }
            ExpectNoDraftLeft();
            // What was left is no obstacle.
            RunOnce();
        } while (calls >= failing);
        swept += failing - 1;
        EXPECT_GT(failing, 1) << "It is not called";
        EXPECT_LE(CountOpenHandles(), handles);
    }

    static constexpr std::uint32_t kWaitLimit = 3000;
    static inline const std::set<AppUpdateResult> kKinds = {
        APP_UPDATE_FILE_ERROR, APP_UPDATE_SYSTEM_ERROR, APP_UPDATE_UPDATER_NOT_STARTED};

    bool isCounting = false;
    std::uint64_t now = 1000;
    UniqueHandle process;
    int swept = 0;
};

#define SWEEP(function, refusal) Sweep(doubles::function, &::function, #function, refusal)

TEST_F(FaultSweep, EndsEachFailureWithItsKindOfCodeAndLeavesNothing) {
    const ScopedReplacement starting(doubles::CreateProcessW, [this](auto... arguments) {
        return StartProcess(std::get<9>(std::tuple(arguments...)));
    });
    // Libraries open handles of their own on their first use.
    Publish(feed);
    RunOnce();
    SWEEP(CreateFileW, INVALID_HANDLE_VALUE);
    SWEEP(ReadFile, FALSE);
    SWEEP(WriteFile, FALSE);
    SWEEP(FlushFileBuffers, FALSE);
    SWEEP(MoveFileExW, FALSE);
    SWEEP(CopyFileW, FALSE);
    SWEEP(CreateDirectoryW, FALSE);
    SWEEP(GetFileAttributesExW, FALSE);
    SWEEP(FindFirstFileExW, INVALID_HANDLE_VALUE);
    SWEEP(FindNextFileW, FALSE);
    SWEEP(CreateEventW, HANDLE{nullptr});
    SWEEP(OpenMutexW, HANDLE{nullptr});
    SWEEP(BCryptOpenAlgorithmProvider, NTSTATUS{-1});
    SWEEP(BCryptCreateHash, NTSTATUS{-1});
    SWEEP(BCryptHashData, NTSTATUS{-1});
    SWEEP(BCryptFinishHash, NTSTATUS{-1});
    EXPECT_GT(swept, 50);
    RecordProperty("swept", swept);
}

}  // namespace
}  // namespace updater
