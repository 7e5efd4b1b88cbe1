// The store when Windows fails: its functions are replaced at link time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "client/failure.h"
#include "client/feed_store.h"
#include "fixtures/damaged_file.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/raised_errors.h"
#include "fixtures/refusals.h"
#include "fixtures/temporary_directory.h"

namespace updater {
namespace {

// Expects the action to raise this; carries it out once, which the matchers for failures need not
// do.
void ExpectRaised(const std::function<void()>& action, AppUpdateResult result,
                  const std::string& text, std::uint32_t error) {
    try {
        action();
        ADD_FAILURE() << "nothing is raised";
    } catch (const ClientFailure& failure) {
        EXPECT_EQ(failure.result, result);
        EXPECT_THAT(failure.what(), testing::HasSubstr(text));
        EXPECT_EQ(failure.systemError, error);
    }
}

struct FeedStoreFailure : testing::Test {
    FeedStoreFailure() {
        WriteFeedStore(data.path, oldStore);
        before = ReadTreeContent(data.path);
    }

    [[nodiscard]] FeedStore NewStore() const {
        FeedStore store = oldStore;
        store.issues["stable"] = 8;
        store.entityTag = "\"2\"";
        store.envelope = "the new envelope";
        return store;
    }

    void ExpectWritingFails(AppUpdateResult result, std::uint32_t error) const {
        ExpectRaised([this] { WriteFeedStore(data.path, NewStore()); }, result, "Cannot write ",
                     error);
    }

    void ExpectAsBefore() const { EXPECT_EQ(ReadTreeContent(data.path), before); }

    TemporaryDirectory data;
    FeedStore oldStore = {.installation = "{6E2D1C4A-0000-4000-8000-00000000003E}",
                          .issues = {{"stable", 7}},
                          .feedAddress = "https://updates.example.com/update-feed.json",
                          .entityTag = "\"1\"",
                          .envelope = "the old envelope"};
    std::map<std::wstring, std::string> before;
};

bool IsDiskFull(DWORD error) {
    constexpr DWORD kQuotaExceeded = 1295;
    return error == ERROR_DISK_FULL || error == ERROR_HANDLE_DISK_FULL || error == kQuotaExceeded;
}

void ExpectResultOf(const FeedStoreFailure& test, DWORD error) {
    test.ExpectWritingFails(IsDiskFull(error) ? APP_UPDATE_DISK_FULL : APP_UPDATE_FILE_ERROR,
                            error);
    test.ExpectAsBefore();
}

constexpr std::initializer_list<DWORD> kErrors = {
    ERROR_ACCESS_DENIED, ERROR_DISK_FULL, ERROR_HANDLE_DISK_FULL, 1295,
    ERROR_WRITE_PROTECT, ERROR_CRC,       ERROR_SHARING_VIOLATION};

// What Windows says of a file that somebody has open, and how often it is tried then.
constexpr std::initializer_list<DWORD> kInUse = {ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION};
constexpr int kTries = 20;

TEST_F(FeedStoreFailure, AFileThatCannotBeWrittenLeavesTheOldStore) {
    ExpectFinalRefusal(
        doubles::WriteFile, FALSE, [this](DWORD error) { ExpectResultOf(*this, error); }, kErrors);
}

TEST_F(FeedStoreFailure, ADiskThatIsFullInTheMiddleLeavesTheOldStore) {
    int calls = 0;
    const ScopedReplacement writing(
        doubles::WriteFile,
        [&](HANDLE file, LPCVOID bytes, DWORD count, LPDWORD written, LPOVERLAPPED overlapped) {
            return ++calls == 1 ? WriteFile(file, bytes, count / 2, written, overlapped)
                                : FailWith(ERROR_DISK_FULL);
        });
    ExpectWritingFails(APP_UPDATE_DISK_FULL, ERROR_DISK_FULL);
    ExpectAsBefore();
    EXPECT_EQ(calls, 2);
}

TEST_F(FeedStoreFailure, AFileThatDoesNotReachTheDiskLeavesTheOldStore) {
    ExpectFinalRefusal(
        doubles::FlushFileBuffers, FALSE, [this](DWORD error) { ExpectResultOf(*this, error); },
        kErrors);
}

TEST_F(FeedStoreFailure, AFileThatCannotBeOpenedLeavesTheOldStore) {
    ExpectFinalRefusal(
        doubles::CreateFileW, INVALID_HANDLE_VALUE,
        [this](DWORD error) {
            ExpectWritingFails(IsDiskFull(error) ? APP_UPDATE_DISK_FULL : APP_UPDATE_FILE_ERROR,
                               error);
        },
        kErrors);
    ExpectAsBefore();
}

TEST_F(FeedStoreFailure, AFileThatCannotBeReopenedLeavesTheOldStore) {
    {
        int calls = 0;
        const ScopedReplacement opening(doubles::CreateFileW, [&](auto... arguments) {
            return ++calls == 2 ? FailWith(ERROR_SHARING_VIOLATION, INVALID_HANDLE_VALUE)
                                : CreateFileW(arguments...);
        });
        ExpectWritingFails(APP_UPDATE_FILE_ERROR, ERROR_SHARING_VIOLATION);
    }
    ExpectAsBefore();
}

TEST_F(FeedStoreFailure, AMoveThatFailsLeavesTheOldStore) {
    const auto ending = [this](DWORD error) { ExpectResultOf(*this, error); };
    ExpectFinalRefusal(doubles::MoveFileExW, FALSE, ending,
                       {ERROR_DISK_FULL, ERROR_HANDLE_DISK_FULL, 1295, ERROR_WRITE_PROTECT,
                        ERROR_CRC, ERROR_FILE_NOT_FOUND});
    ExpectFinalRefusal(doubles::MoveFileExW, FALSE, ending, kInUse, kTries);
}

TEST_F(FeedStoreFailure, AFileThatSomebodyHasOpenIsReplacedWhenHeIsDone) {
    UniqueHandle reader = HoldFile(data.path / kEnvelopeFile, GENERIC_READ, FILE_SHARE_READ);
    std::vector<DWORD> errors;
    const ScopedReplacement moving(doubles::MoveFileExW, [&](auto... arguments) {
        const BOOL isMoved = MoveFileExW(arguments...);
        if (isMoved == 0) {
            errors.push_back(GetLastError());
            reader.reset();
            SetLastError(errors.back());
        }
        return isMoved;
    });
    WriteFeedStore(data.path, NewStore());
    EXPECT_EQ(errors.size(), 1U);
    EXPECT_EQ(ReadFileContent(data.path / kEnvelopeFile), NewStore().envelope);
}

TEST_F(FeedStoreFailure, TheLastTryCountsToo) {
    for (const DWORD error : kInUse) {
        int calls = 0;
        const auto refuses = [&] { return ++calls < kTries; };
        {
            const ScopedReplacement moving(doubles::MoveFileExW, [&](auto... arguments) {
                return refuses() ? FailWith(error) : MoveFileExW(arguments...);
            });
            WriteFeedStore(data.path, NewStore());
        }
        EXPECT_EQ(calls, kTries + 1) << "the second file is moved at once";
        calls = 0;
        const ScopedReplacement opening(doubles::CreateFileW, [&](auto... arguments) {
            return refuses() ? FailWith(error, INVALID_HANDLE_VALUE) : CreateFileW(arguments...);
        });
        EXPECT_EQ(ReadFeedStore(data.path).envelope, NewStore().envelope);
        calls = 0;
        EXPECT_NE(LockFeedStore(data.path), nullptr);
        EXPECT_EQ(calls, kTries);
    }
}

TEST_F(FeedStoreFailure, ALockThatNobodyGetsIsNotWaitedForForEver) {
    const UniqueHandle lock = LockFeedStore(data.path);
    ASSERT_NE(lock, nullptr);
    int calls = 0;
    const ScopedReplacement opening(doubles::CreateFileW, [&](auto... arguments) {
        ++calls;
        return CreateFileW(arguments...);
    });
    EXPECT_EQ(LockFeedStore(data.path), nullptr);
    EXPECT_EQ(calls, kTries);
}

TEST_F(FeedStoreFailure, TheMoveReplacesAndReachesTheDiskWithAWholeFile) {
    std::vector<std::wstring> moved;
    const ScopedReplacement moving(
        doubles::MoveFileExW, [&](LPCWSTR source, LPCWSTR target, DWORD flags) {
            EXPECT_EQ(flags, DWORD{MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH});
            EXPECT_NE(ReadFileContent(source), ReadFileContent(target));
            EXPECT_TRUE(std::wstring(source).starts_with(target)) << "on the same volume";
            moved.push_back(std::filesystem::path(target).filename());
            return MoveFileExW(source, target, flags);
        });
    WriteFeedStore(data.path, NewStore());
    EXPECT_THAT(moved, testing::ElementsAre(L"update-state.json", L"update-feed.json"));
}

// Between the two files: the issue seen is known, and the envelope that does not belong to it is
// not offered again.
TEST_F(FeedStoreFailure, AnEnvelopeThatCannotBeReplacedIsNotUsedWithTheNewTag) {
    {
        int moves = 0;
        const ScopedReplacement moving(doubles::MoveFileExW, [&](auto... arguments) {
            return ++moves == 2 ? FailWith(ERROR_WRITE_PROTECT) : MoveFileExW(arguments...);
        });
        ExpectWritingFails(APP_UPDATE_FILE_ERROR, ERROR_WRITE_PROTECT);
    }
    const FeedStore store = ReadFeedStore(data.path);
    EXPECT_EQ(store.installation, oldStore.installation);
    EXPECT_EQ(store.issues, NewStore().issues);
    EXPECT_EQ(store.feedAddress + store.entityTag + store.envelope, "");
    EXPECT_TRUE(store.wasDamaged);
}

TEST_F(FeedStoreFailure, AFileThatCannotBeReadToItsEndIsNotTakenForADamagedOne) {
    for (const wchar_t* name : {L"update-state.json", L"update-feed.json"}) {
        const DamagedFile damaged(name, 10);
        ExpectRaised([this] { ReadFeedStore(data.path); }, APP_UPDATE_FILE_ERROR, "Cannot read ",
                     ERROR_CRC);
        EXPECT_EQ(damaged.failures, 1);
    }
}

TEST_F(FeedStoreFailure, AFileThatCannotBeOpenedIsNotTakenForAMissingOne) {
    const auto ending = [this](DWORD error) {
        ExpectRaised([this] { ReadFeedStore(data.path); }, APP_UPDATE_FILE_ERROR, "Cannot read ",
                     error);
    };
    ExpectFinalRefusal(
        doubles::CreateFileW, INVALID_HANDLE_VALUE, ending,
        {ERROR_BAD_NETPATH, ERROR_NOT_READY, ERROR_INVALID_NAME, ERROR_TOO_MANY_OPEN_FILES});
    ExpectFinalRefusal(doubles::CreateFileW, INVALID_HANDLE_VALUE, ending, kInUse, kTries);
    ExpectAsBefore();
}

TEST_F(FeedStoreFailure, AMachineThatMakesNoNumbersMakesNoStore) {
    const TemporaryDirectory empty;
    const ScopedReplacement failing(doubles::CoCreateGuid, [](GUID*) { return E_FAIL; });
    EXPECT_THAT([&] { ReadFeedStore(empty.path); },
                RaisesError("Cannot create update job identity"));
}

}  // namespace
}  // namespace updater
