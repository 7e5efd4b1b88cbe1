// Downloads on a machine in trouble: Windows' functions are replaced at link time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "client/client_failures.h"
#include "client/download_fixture.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/refusals.h"
#include "support/file_system.h"

namespace updater {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;

constexpr std::size_t kSize = 100'000;

struct DownloadFailure : DownloadFixture {
    DownloadFailure() : DownloadFixture(kUnruly, kSize) {
        // Libraries open handles of their own on their first use.
        Download();
        RemoveFile(SetupPath(order.directory, order.sha256));
        ForgetRequests();
    }

    void Download() { DownloadSetup(*transport, order, cancellation, {}); }

    [[nodiscard]] auto Raises(AppUpdateResult result, DWORD error) const {
        return RaisesResult(result, "", error);
    }

    [[nodiscard]] static AppUpdateResult FileResult(DWORD error) {
        return error == ERROR_DISK_FULL ? APP_UPDATE_DISK_FULL : APP_UPDATE_FILE_ERROR;
    }

    // Lets a function that gets a handle refuse its work on the part file, for each number.
    template <typename... Arguments>
    void ExpectRefusal(Replacement<BOOL(HANDLE, Arguments...)>& function,
                       std::type_identity_t<BOOL(WINAPI*)(HANDLE, Arguments...)> real,
                       std::size_t requests) {
        for (const DWORD error : kRefusals) {
            SCOPED_TRACE(error);
            ForgetRequests();
            int calls = 0;
            const ScopedReplacement refusing(function, [&](HANDLE handle, Arguments... arguments) {
                if (!IsPart(handle)) {
                    return real(handle, arguments...);
                }
                ++calls;
                return FailWith(error);
            });
            EXPECT_THAT([this] { Download(); }, Raises(FileResult(error), error));
            EXPECT_EQ(calls, 1);
            EXPECT_EQ(Requests().size(), requests);
        }
    }

    [[nodiscard]] bool IsPart(HANDLE handle) const {
        std::wstring path(1024, L'\0');
        path.resize(GetFinalPathNameByHandleW(handle, path.data(), static_cast<DWORD>(path.size()),
                                              VOLUME_NAME_DOS));
        return path.ends_with(L".part");
    }

    std::uint64_t free = 0;
    std::filesystem::path asked;
    std::function<BOOL(LPCWSTR, PULARGE_INTEGER, PULARGE_INTEGER, PULARGE_INTEGER)> tellSpace =
        [this](LPCWSTR path, PULARGE_INTEGER available, PULARGE_INTEGER, PULARGE_INTEGER) {
            asked = path;
            available->QuadPart = free;
            return TRUE;
        };
};

TEST_F(DownloadFailure, AsksNobodyWhereThereIsNoSpace) {
    free = kSize - 1;
    const ScopedReplacement space(doubles::GetDiskFreeSpaceExW, tellSpace);
    EXPECT_THAT([this] { Download(); },
                RaisesResult(APP_UPDATE_DISK_FULL, "100000 bytes are needed, 99999 are free"));
    EXPECT_EQ(asked, order.directory);
    EXPECT_THAT(Requests(), IsEmpty());
    EXPECT_THAT(ReadTreeContent(order.directory), IsEmpty());
    free = kSize;
    EXPECT_NO_THROW(Download());
}

TEST_F(DownloadFailure, NeedsSpaceForTheRestOnly) {
    order.address += L"?cut=60000&times=4";
    EXPECT_THAT([this] { Download(); }, RaisesResult(APP_UPDATE_NO_NETWORK));
    free = kSize - FileSize(SetupPath(order.directory, order.sha256).replace_extension(L".part"));
    EXPECT_LT(free--, kSize);
    const ScopedReplacement space(doubles::GetDiskFreeSpaceExW, tellSpace);
    EXPECT_THAT([this] { Download(); }, RaisesResult(APP_UPDATE_DISK_FULL));
    ++free;
    EXPECT_NO_THROW(Download());
}

TEST_F(DownloadFailure, EndsWhereTheSpaceCannotBeTold) {
    ExpectFinalRefusal(doubles::GetDiskFreeSpaceExW, FALSE, [this](DWORD error) {
        EXPECT_THAT([this] { Download(); }, Raises(FileResult(error), error));
        EXPECT_THAT(ReadTreeContent(order.directory), IsEmpty());
    });
    EXPECT_THAT(Requests(), IsEmpty());
}

TEST_F(DownloadFailure, EndsAtOnceWhenAPartCannotBeWritten) {
    ExpectRefusal(doubles::WriteFile, ::WriteFile, 1);
    EXPECT_THAT(ReadTreeContent(order.directory), IsEmpty());
}

TEST_F(DownloadFailure, EndsAtOnceWhenAPartCannotBeMeasuredOrEmptied) {
    ExpectRefusal(doubles::GetFileSizeEx, ::GetFileSizeEx, 0);
    ExpectRefusal(doubles::SetFilePointerEx, ::SetFilePointerEx, 0);
    ExpectRefusal(doubles::SetEndOfFile, ::SetEndOfFile, 0);
}

TEST_F(DownloadFailure, TakesAWriteOfNothingForAFullDisk) {
    const ScopedReplacement writing(
        doubles::WriteFile,
        [this](HANDLE file, LPCVOID buffer, DWORD bytes, LPDWORD written, LPOVERLAPPED overlapped) {
            if (!IsPart(file)) {
                return WriteFile(file, buffer, bytes, written, overlapped);
            }
            *written = 0;
            return TRUE;
        });
    EXPECT_THAT([this] { Download(); }, RaisesResult(APP_UPDATE_DISK_FULL));
}

TEST_F(DownloadFailure, WritesOnWhereAWriteTakesLessThanItGets) {
    const ScopedReplacement writing(
        doubles::WriteFile,
        [this](HANDLE file, LPCVOID buffer, DWORD bytes, LPDWORD written, LPOVERLAPPED overlapped) {
            return WriteFile(file, buffer, IsPart(file) && bytes > 1000 ? 1000 : bytes, written,
                             overlapped);
        });
    EXPECT_NO_THROW(Download());
    EXPECT_TRUE(ReadFileContent(SetupPath(order.directory, order.sha256)) == content);
}

TEST_F(DownloadFailure, KeepsACompletePartThatDoesNotReachTheDisk) {
    {
        const ScopedReplacement flushing(doubles::FlushFileBuffers, [this](HANDLE file) {
            return IsPart(file) ? FailWith(ERROR_CRC) : FlushFileBuffers(file);
        });
        EXPECT_THAT([this] { Download(); }, Raises(APP_UPDATE_FILE_ERROR, ERROR_CRC));
    }
    ExpectRefusal(doubles::FlushFileBuffers, ::FlushFileBuffers, 0);
}

TEST_F(DownloadFailure, KeepsACompletePartThatDoesNotGetItsName) {
    constexpr std::size_t requests = 1;
    for (const DWORD error : kRefusals) {
        SCOPED_TRACE(error);
        int calls = 0;
        const ScopedReplacement moving(
            doubles::MoveFileExW, [&](LPCWSTR from, LPCWSTR to, DWORD flags) {
                if (std::filesystem::path(to).extension() != L".exe") {
                    return MoveFileExW(from, to, flags);
                }
                EXPECT_EQ(flags, DWORD{MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH});
                ++calls;
                return FailWith(error);
            });
        EXPECT_THAT([this] { Download(); }, Raises(FileResult(error), error));
        const bool mayBeInUse = error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION;
        EXPECT_EQ(calls, mayBeInUse ? 20 : 1);
        EXPECT_EQ(Requests().size(), requests) << "the part is complete from now on";
    }
    EXPECT_NO_THROW(Download());
    EXPECT_EQ(Requests().size(), requests);
}

TEST_F(DownloadFailure, EndsWhereAFileCannotBeOpened) {
    for (const wchar_t* extension : {L".exe", L".part"}) {
        for (const DWORD error : kRefusals) {
            SCOPED_TRACE(error);
            int calls = 0;
            const ScopedReplacement opening(
                doubles::CreateFileW,
                [&](LPCWSTR name, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                    DWORD disposition, DWORD flags, HANDLE pattern) {
                    if (std::filesystem::path(name).extension() != extension) {
                        return CreateFileW(name, access, sharing, security, disposition, flags,
                                           pattern);
                    }
                    ++calls;
                    EXPECT_EQ(sharing, DWORD{FILE_SHARE_READ});
                    return FailWith(error, INVALID_HANDLE_VALUE);
                });
            EXPECT_THAT([this] { Download(); }, Raises(FileResult(error), error));
            EXPECT_EQ(calls, 1);
        }
    }
    EXPECT_THAT(Requests(), IsEmpty());
}

TEST_F(DownloadFailure, EndsWhereACompleteFileCannotBeRead) {
    Download();
    ExpectFinalRefusal(doubles::ReadFile, FALSE, [this](DWORD error) {
        EXPECT_THAT([this] { Download(); }, Raises(FileResult(error), error));
    });
    EXPECT_TRUE(PathExists(SetupPath(order.directory, order.sha256)));
}

TEST_F(DownloadFailure, EndsWhereThereIsNoDigest) {
    constexpr NTSTATUS kNotSupported = static_cast<NTSTATUS>(0xC00000BB);
    {
        const ScopedReplacement opening(
            doubles::BCryptOpenAlgorithmProvider,
            [](BCRYPT_ALG_HANDLE*, LPCWSTR, LPCWSTR, ULONG) { return kNotSupported; });
        EXPECT_THAT([this] { Download(); }, RaisesResult(APP_UPDATE_SYSTEM_ERROR, "SHA-256"));
    }
    {
        const ScopedReplacement hashing(
            doubles::BCryptHashData,
            [](BCRYPT_HASH_HANDLE, PUCHAR, ULONG, ULONG) { return kNotSupported; });
        EXPECT_THAT([this] { Download(); }, RaisesResult(APP_UPDATE_SYSTEM_ERROR, "SHA-256"));
    }
    const ScopedReplacement finishing(
        doubles::BCryptFinishHash,
        [](BCRYPT_HASH_HANDLE, PUCHAR, ULONG, ULONG) { return kNotSupported; });
    EXPECT_THAT([this] { Download(); }, RaisesResult(APP_UPDATE_SYSTEM_ERROR, "SHA-256"));
}

TEST_F(DownloadFailure, PausesLongerEachTime) {
    order.address += L"?status=500";
    order.firstPause = 1000;
    std::vector<DWORD> pauses;
    const ScopedReplacement waiting(
        doubles::WaitForSingleObject, [&](HANDLE handle, DWORD milliseconds) {
            if (handle != cancellation.event.get() || milliseconds == 0) {
                return WaitForSingleObject(handle, milliseconds);
            }
            pauses.push_back(milliseconds);
            return DWORD{WAIT_TIMEOUT};
        });
    EXPECT_THAT([this] { Download(); }, RaisesResult(APP_UPDATE_SERVER_ERROR));
    EXPECT_THAT(pauses, ElementsAre(AllOf(Ge(750U), Le(1250U)), AllOf(Ge(1500U), Le(2500U)),
                                    AllOf(Ge(3000U), Le(5000U))));
    for (int more = 0; more < 5; ++more) {
        EXPECT_THAT([this] { Download(); }, RaisesResult(APP_UPDATE_SERVER_ERROR));
    }
    EXPECT_GT(std::set<DWORD>(pauses.begin(), pauses.end()).size(), 5U) << "machines differ";
    order.firstPause = 0xFFFFFFFF;
    pauses.clear();
    EXPECT_THAT([this] { Download(); }, RaisesResult(APP_UPDATE_SERVER_ERROR));
    EXPECT_THAT(pauses, testing::Each(Le(0x7FFFFFFFU)));
}

// Whoever cancels does so just before the pause, or while it lasts.
TEST_F(DownloadFailure, EndsInAPauseWhenItIsCancelled) {
    order.address += L"?status=500";
    order.firstPause = 1'000'000'000;
    for (const bool isBefore : {true, false}) {
        SCOPED_TRACE(isBefore);
        ForgetRequests();
        std::jthread canceller;
        int pauses = 0;
        const ScopedReplacement waiting(
            doubles::WaitForSingleObject, [&](HANDLE handle, DWORD milliseconds) {
                if (handle != cancellation.event.get() || milliseconds == 0) {
                    return WaitForSingleObject(handle, milliseconds);
                }
                ++pauses;
                if (isBefore) {
                    RequestCancellation(cancellation);
                } else {
                    canceller = std::jthread([this] { RequestCancellation(cancellation); });
                }
                return WaitForSingleObject(handle, milliseconds);
            });
        EXPECT_THAT([this] { Download(); }, RaisesResult(APP_UPDATE_CANCELLED));
        EXPECT_EQ(pauses, 1);
        EXPECT_EQ(Requests().size(), 1U);
    }
}

}  // namespace
}  // namespace updater
