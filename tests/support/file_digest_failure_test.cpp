// The digest with a failing provider or disk: the system's hash functions and its ReadFile are
// replaced at link time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/windows_api.h"

// After the Windows types that it needs.
#include <bcrypt.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "fixtures/damaged_file.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/open_handles.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "support/file_digest.h"
#include "support/file_system.h"

namespace updater {

namespace {

using testing::ElementsAre;

constexpr NTSTATUS kNotSupported = static_cast<NTSTATUS>(0xC00000BB);
constexpr NTSTATUS kInvalidHandle = static_cast<NTSTATUS>(0xC0000008);
// Negative too, though only a warning.
constexpr NTSTATUS kWarning = static_cast<NTSTATUS>(0x80000005);
constexpr NTSTATUS kInformation = 0x40000000;

// What the provider's functions return; a negative status is returned instead of doing the work.
struct ProviderStatuses {
    NTSTATUS open = 0;
    NTSTATUS create = 0;
    NTSTATUS hash = 0;
    NTSTATUS finish = 0;
    /// The chunk, counted from 1, that gets a negative `hash`.
    std::size_t failingChunk = 1;
};

// The provider's functions with every call noted down.
struct ObservedProvider {
    explicit ObservedProvider(const ProviderStatuses& answers = {});

    std::vector<std::string> calls;
    ProviderStatuses statuses;
    std::size_t chunks = 0;
    BCRYPT_ALG_HANDLE provider = nullptr;
    BCRYPT_HASH_HANDLE hash = nullptr;

    ScopedReplacement<decltype(BCryptOpenAlgorithmProvider)> open;
    ScopedReplacement<decltype(BCryptCreateHash)> create;
    ScopedReplacement<decltype(BCryptHashData)> feed;
    ScopedReplacement<decltype(BCryptFinishHash)> finish;
    ScopedReplacement<decltype(BCryptDestroyHash)> destroy;
    ScopedReplacement<decltype(BCryptCloseAlgorithmProvider)> close;
};

ObservedProvider::ObservedProvider(const ProviderStatuses& answers)
    : statuses(answers),
      open(doubles::BCryptOpenAlgorithmProvider,
           [this](BCRYPT_ALG_HANDLE* opened, LPCWSTR algorithm, LPCWSTR implementation,
                  ULONG flags) {
               calls.emplace_back("open");
               EXPECT_STREQ(algorithm, L"SHA256");
               EXPECT_EQ(implementation, nullptr);
               EXPECT_EQ(flags, 0U);
               if (statuses.open < 0) {
                   return statuses.open;
               }
               BCryptOpenAlgorithmProvider(opened, algorithm, implementation, flags);
               provider = *opened;
               return statuses.open;
           }),
      create(doubles::BCryptCreateHash,
             [this](BCRYPT_ALG_HANDLE from, BCRYPT_HASH_HANDLE* created, PUCHAR object,
                    ULONG objectBytes, PUCHAR secret, ULONG secretBytes, ULONG flags) {
                 calls.emplace_back("create");
                 EXPECT_EQ(from, provider);
                 EXPECT_EQ(object, nullptr);
                 EXPECT_EQ(objectBytes, 0U);
                 EXPECT_EQ(secret, nullptr);
                 EXPECT_EQ(secretBytes, 0U);
                 EXPECT_EQ(flags, 0U);
                 if (statuses.create < 0) {
                     return statuses.create;
                 }
                 BCryptCreateHash(from, created, object, objectBytes, secret, secretBytes, flags);
                 hash = *created;
                 return statuses.create;
             }),
      feed(doubles::BCryptHashData,
           [this](BCRYPT_HASH_HANDLE into, PUCHAR data, ULONG bytes, ULONG flags) {
               calls.push_back("hash " + std::to_string(bytes));
               EXPECT_EQ(into, hash);
               EXPECT_EQ(flags, 0U);
               ++chunks;
               if (chunks == statuses.failingChunk && statuses.hash < 0) {
                   return statuses.hash;
               }
               BCryptHashData(into, data, bytes, flags);
               return statuses.hash < 0 ? 0 : statuses.hash;
           }),
      finish(doubles::BCryptFinishHash,
             [this](BCRYPT_HASH_HANDLE of, PUCHAR output, ULONG bytes, ULONG flags) {
                 calls.emplace_back("finish");
                 EXPECT_EQ(of, hash);
                 EXPECT_EQ(bytes, 32U);
                 EXPECT_EQ(flags, 0U);
                 if (statuses.finish < 0) {
                     return statuses.finish;
                 }
                 BCryptFinishHash(of, output, bytes, flags);
                 return statuses.finish;
             }),
      destroy(doubles::BCryptDestroyHash,
              [this](BCRYPT_HASH_HANDLE destroyed) {
                  calls.emplace_back("destroy");
                  EXPECT_EQ(destroyed, hash);
                  BCryptDestroyHash(destroyed);
                  return kInvalidHandle;
              }),
      close(doubles::BCryptCloseAlgorithmProvider, [this](BCRYPT_ALG_HANDLE closed, ULONG flags) {
          calls.emplace_back("close");
          EXPECT_EQ(closed, provider);
          EXPECT_EQ(flags, 0U);
          BCryptCloseAlgorithmProvider(closed, flags);
          return kInvalidHandle;
      }) {}

struct FileSha256HexFailure : testing::Test {
    FileSha256HexFailure() { WriteFileContent(file, std::string(200000, 'x')); }

    void ExpectFailure(const char* message) const {
        EXPECT_THAT([&] { FileSha256Hex(file); }, RaisesError(message));
    }

    TemporaryDirectory directory;
    std::filesystem::path file = directory.path / L"file";
};

TEST_F(FileSha256HexFailure, AFileIsReadInChunksAndEverythingReleasedOnce) {
    const ObservedProvider provider;
    FileSha256Hex(file);
    EXPECT_THAT(provider.calls,
                ElementsAre("open", "create", "hash 65536", "hash 65536", "hash 65536", "hash 3392",
                            "finish", "destroy", "close"));
}

TEST_F(FileSha256HexFailure, TheLastChunkOfAFileMayBeEmpty) {
    WriteFileContent(file, std::string(65536, 'x'));
    const ObservedProvider provider;
    FileSha256Hex(file);
    EXPECT_THAT(provider.calls, ElementsAre("open", "create", "hash 65536", "hash 0", "finish",
                                            "destroy", "close"));
}

TEST_F(FileSha256HexFailure, EveryCallOpensAProviderAndAHashOfItsOwn) {
    WriteFileContent(file, "");
    const ObservedProvider provider;
    FileSha256Hex(file);
    FileSha256Hex(file);
    EXPECT_THAT(provider.calls,
                ElementsAre("open", "create", "hash 0", "finish", "destroy", "close", "open",
                            "create", "hash 0", "finish", "destroy", "close"));
}

TEST_F(FileSha256HexFailure, AStatusThatIsNotNegativeIsNoFailure) {
    WriteFileContent(file, "");
    const ObservedProvider provider({.open = kInformation,
                                     .create = kInformation,
                                     .hash = kInformation,
                                     .finish = kInformation});
    EXPECT_EQ(FileSha256Hex(file),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_THAT(provider.calls,
                ElementsAre("open", "create", "hash 0", "finish", "destroy", "close"));
}

TEST_F(FileSha256HexFailure, AProviderThatCannotBeOpenedIsAnInitializationFailure) {
    for (const NTSTATUS status : {kNotSupported, kWarning}) {
        const ObservedProvider provider({.open = status});
        ExpectFailure("SHA256 initialization failed");
        EXPECT_THAT(provider.calls, ElementsAre("open"));
    }
}

TEST_F(FileSha256HexFailure, AHashThatCannotBeCreatedIsAnInitializationFailure) {
    for (const NTSTATUS status : {kNotSupported, kWarning}) {
        const ObservedProvider provider({.create = status});
        ExpectFailure("SHA256 initialization failed");
        EXPECT_THAT(provider.calls, ElementsAre("open", "create", "close"));
    }
}

TEST_F(FileSha256HexFailure, TheProviderIsTriedBeforeTheFile) {
    const ObservedProvider provider({.create = kNotSupported});
    file = directory.path / L"missing";
    ExpectFailure("SHA256 initialization failed");
    EXPECT_THAT(provider.calls, ElementsAre("open", "create", "close"));
}

TEST_F(FileSha256HexFailure, AFileThatCannotBeOpenedReleasesEverything) {
    const ObservedProvider provider;
    file = directory.path / L"missing";
    ExpectFailure("SHA256 verification failed");
    EXPECT_THAT(provider.calls, ElementsAre("open", "create", "destroy", "close"));
}

TEST_F(FileSha256HexFailure, AChunkThatCannotBeHashedEndsTheReading) {
    for (const NTSTATUS status : {kNotSupported, kWarning}) {
        const ObservedProvider provider({.hash = status, .failingChunk = 2});
        ExpectFailure("SHA256 verification failed");
        EXPECT_THAT(provider.calls,
                    ElementsAre("open", "create", "hash 65536", "hash 65536", "destroy", "close"));
    }
}

TEST_F(FileSha256HexFailure, TheLastChunkMustBeHashedToo) {
    const ObservedProvider provider({.hash = kNotSupported, .failingChunk = 4});
    ExpectFailure("SHA256 verification failed");
    EXPECT_THAT(provider.calls, ElementsAre("open", "create", "hash 65536", "hash 65536",
                                            "hash 65536", "hash 3392", "destroy", "close"));
}

TEST_F(FileSha256HexFailure, ADigestThatCannotBeFinishedIsNotReturned) {
    for (const NTSTATUS status : {kNotSupported, kWarning}) {
        const ObservedProvider provider({.finish = status});
        ExpectFailure("SHA256 verification failed");
        EXPECT_EQ(provider.calls.back(), "close");
        EXPECT_EQ(provider.calls.size(), 9U);
    }
}

TEST_F(FileSha256HexFailure, AReadThatFailsHardGivesNoDigestOfThePartBeforeIt) {
    // At the start, within the first chunk, after it, later, and where the end should be seen.
    for (const int readable : {0, 8192, 65536, 131072, 199999, 200000}) {
        SCOPED_TRACE(readable);
        const ObservedProvider provider;
        const DamagedFile damaged(L"file", readable);
        ExpectFailure("SHA256 verification failed");
        EXPECT_EQ(damaged.failures, 1) << "nothing is read after the failure";
        EXPECT_THAT(provider.calls, testing::Not(testing::Contains("finish")));
        EXPECT_EQ(provider.calls.back(), "close");
    }
}

TEST_F(FileSha256HexFailure, NoFailureLeavesAHandleOpen) {
    const auto failEverywhere = [&] {
        const std::vector<std::pair<ProviderStatuses, const char*>> failures = {
            {{.open = kNotSupported}, "SHA256 initialization failed"},
            {{.create = kNotSupported}, "SHA256 initialization failed"},
            {{.hash = kNotSupported}, "SHA256 verification failed"},
            {{.finish = kNotSupported}, "SHA256 verification failed"}};
        for (const auto& [statuses, message] : failures) {
            const ObservedProvider provider(statuses);
            ExpectFailure(message);
        }
    };
    ExpectNoHandleLeft(failEverywhere);
    EXPECT_NO_THROW(RemoveFile(file)) << "the file is closed, too";
}

}  // namespace

}  // namespace updater
