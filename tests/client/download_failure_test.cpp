// Downloads on a machine in trouble: Windows' functions are replaced at link time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "client/client_failures.h"
#include "client/download.h"
#include "client/https_server.h"
#include "client/text_digest.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/refusals.h"
#include "fixtures/temporary_directory.h"
#include "support/file_system.h"

namespace updater {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;

constexpr std::size_t kSize = 100'000;

struct DownloadFailure : testing::Test {
    static void SetUpTestSuite() { servers = std::make_unique<HttpsServers>(); }
    static void TearDownTestSuite() { servers.reset(); }

    DownloadFailure() {
        servers->Publish(L"setup.exe", content);
        Download();
        RemoveFile(SetupPath(order.directory, order.sha256));
        requestsBefore = servers->Requests(kUnruly).size();
    }

    void Download() { DownloadSetup(*transport, order, cancellation, {}); }

    [[nodiscard]] std::size_t Requests() const {
        return servers->Requests(kUnruly).size() - requestsBefore;
    }

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
            requestsBefore = servers->Requests(kUnruly).size();
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
            EXPECT_EQ(Requests(), requests);
        }
    }

    [[nodiscard]] bool IsPart(HANDLE handle) const {
        std::wstring path(1024, L'\0');
        path.resize(GetFinalPathNameByHandleW(handle, path.data(), static_cast<DWORD>(path.size()),
                                              VOLUME_NAME_DOS));
        return path.ends_with(L".part");
    }

    static std::unique_ptr<HttpsServers> servers;
    std::string content = PatternOfSize(kSize);
    TemporaryDirectory directory;
    DownloadOrder order{.address = servers->Address(kUnruly, L"setup.exe"),
                        .size = kSize,
                        .sha256 = Sha256Text(DigestOfText(content)),
                        .directory = directory.path / L"downloads",
                        .firstPause = 1};
    Cancellation cancellation = CreateCancellation();
    UniqueTransport transport = OpenTransport({}, cancellation);
    std::size_t requestsBefore = 0;
};

std::unique_ptr<HttpsServers> DownloadFailure::servers;

TEST_F(DownloadFailure, AsksNobodyWhereThereIsNoSpace) {
    std::uint64_t free = kSize - 1;
    std::filesystem::path asked;
    const ScopedReplacement space(
        doubles::GetDiskFreeSpaceExW,
        [&](LPCWSTR path, PULARGE_INTEGER available, PULARGE_INTEGER, PULARGE_INTEGER) {
            asked = path;
            available->QuadPart = free;
            return TRUE;
        });
    EXPECT_THAT([this] { Download(); },
                RaisesResult(APP_UPDATE_DISK_FULL, "100000 bytes are needed, 99999 are free"));
    EXPECT_EQ(asked, order.directory);
    EXPECT_EQ(Requests(), 0U);
    EXPECT_THAT(ReadTreeContent(order.directory), IsEmpty());
    free = kSize;
    EXPECT_NO_THROW(Download());
}

TEST_F(DownloadFailure, EndsWhereTheSpaceCannotBeTold) {
    ExpectFinalRefusal(doubles::GetDiskFreeSpaceExW, FALSE, [this](DWORD error) {
        EXPECT_THAT([this] { Download(); }, Raises(FileResult(error), error));
        EXPECT_THAT(ReadTreeContent(order.directory), IsEmpty());
    });
    EXPECT_EQ(Requests(), 0U);
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
        EXPECT_EQ(calls, 1);
        EXPECT_EQ(Requests(), requests) << "the part is complete from now on";
    }
    EXPECT_NO_THROW(Download());
    EXPECT_EQ(Requests(), requests);
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
    EXPECT_EQ(Requests(), 0U);
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

}  // namespace
}  // namespace updater
