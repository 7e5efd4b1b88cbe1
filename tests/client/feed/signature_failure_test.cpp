// Signatures and digests when the system's cryptography fails: its functions are replaced at link
// time. A failure is never an answer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "client/base64.h"
#include "client/client_failures.h"
#include "client/envelope.h"
#include "client/feed/feed_vectors.h"
#include "client/feed_judgement.h"
#include "client/signature.h"
#include "fixtures/doubles/windows_doubles.h"

namespace updater {
namespace {

constexpr NTSTATUS kStatuses[] = {
    static_cast<NTSTATUS>(0xC0000001), static_cast<NTSTATUS>(0xC0000008),
    static_cast<NTSTATUS>(0xC000000D), static_cast<NTSTATUS>(0xC00000BB),
    // Negative too, though only a warning.
    static_cast<NTSTATUS>(0x80000005)};

struct SignatureFailure : testing::Test {
    void ExpectFailure(const std::string& sentence, std::uint32_t error) const {
        EXPECT_THAT([this] { OpenEnvelope(envelope, {&key, 1}); },
                    RaisesResult(APP_UPDATE_SYSTEM_ERROR, sentence, error));
    }

    PublicKey key = ReadPublicKey(kKeyA).value();
    std::string envelope = MakeEnvelope(kPayload, kKeyAId, DecodeBase64(kSignatureA).value());
};

TEST_F(SignatureFailure, NothingIsRefusedWithoutAFailure) {
    EXPECT_EQ(OpenEnvelope(envelope, {&key, 1}), kPayload);
}

TEST_F(SignatureFailure, AProviderThatIsMissing) {
    for (const NTSTATUS status : kStatuses) {
        const ScopedReplacement opening(doubles::BCryptOpenAlgorithmProvider,
                                        [&](auto...) { return status; });
        ExpectFailure("The system verifies no signatures", static_cast<std::uint32_t>(status));
    }
}

TEST_F(SignatureFailure, AKeyThatIsNotTaken) {
    for (const NTSTATUS status : kStatuses) {
        const ScopedReplacement importing(doubles::BCryptImportKeyPair,
                                          [&](auto...) { return status; });
        ExpectFailure("The system verifies no signatures", static_cast<std::uint32_t>(status));
    }
}

TEST_F(SignatureFailure, AVerificationThatFails) {
    for (const NTSTATUS status : kStatuses) {
        const ScopedReplacement verifying(doubles::BCryptVerifySignature,
                                          [&](auto...) { return status; });
        ExpectFailure("The system verifies no signatures", static_cast<std::uint32_t>(status));
    }
}

TEST_F(SignatureFailure, AnAnswerThatIsNotYesIsNo) {
    for (const NTSTATUS status :
         {static_cast<NTSTATUS>(0xC000A000), NTSTATUS{1}, NTSTATUS{0x103}, NTSTATUS{0x40000000}}) {
        const ScopedReplacement verifying(doubles::BCryptVerifySignature,
                                          [&](auto...) { return status; });
        EXPECT_THAT([this] { OpenEnvelope(envelope, {&key, 1}); },
                    RaisesResult(APP_UPDATE_BAD_SIGNATURE, "The feed's signature does not fit"));
    }
}

TEST_F(SignatureFailure, TheKeyTheDigestAndTheNumbersAreHandedOn) {
    int calls = 0;
    const ScopedReplacement verifying(
        doubles::BCryptVerifySignature,
        [&](BCRYPT_KEY_HANDLE handle, VOID* padding, PUCHAR digest, ULONG digestSize,
            PUCHAR numbers, ULONG numbersSize, ULONG flags) {
            ++calls;
            EXPECT_EQ(padding, nullptr);
            EXPECT_EQ(digestSize, 32U);
            EXPECT_EQ(numbersSize, 64U);
            EXPECT_EQ(flags, 0U);
            return BCryptVerifySignature(handle, padding, digest, digestSize, numbers, numbersSize,
                                         flags);
        });
    EXPECT_EQ(OpenEnvelope(envelope, {&key, 1}), kPayload);
    EXPECT_EQ(calls, 1);
}

TEST_F(SignatureFailure, WhatIsOpenedIsClosed) {
    int open = 0;
    const ScopedReplacement opening(doubles::BCryptOpenAlgorithmProvider, [&](auto... arguments) {
        ++open;
        return BCryptOpenAlgorithmProvider(arguments...);
    });
    const ScopedReplacement closing(doubles::BCryptCloseAlgorithmProvider, [&](auto... arguments) {
        --open;
        return BCryptCloseAlgorithmProvider(arguments...);
    });
    const ScopedReplacement importing(doubles::BCryptImportKeyPair, [&](auto... arguments) {
        ++open;
        return BCryptImportKeyPair(arguments...);
    });
    const ScopedReplacement destroying(doubles::BCryptDestroyKey, [&](auto... arguments) {
        --open;
        return BCryptDestroyKey(arguments...);
    });
    EXPECT_EQ(OpenEnvelope(envelope, {&key, 1}), kPayload);
    EXPECT_EQ(open, 0);
    const ScopedReplacement verifying(doubles::BCryptVerifySignature,
                                      [](auto...) { return kStatuses[0]; });
    ExpectFailure("The system verifies no signatures", 0xC0000001);
    EXPECT_EQ(open, 0);
}

void ExpectNoDigest(const std::function<void()>& action) {
    EXPECT_THAT(action,
                RaisesResult(APP_UPDATE_SYSTEM_ERROR, "The system computes no SHA-256 digest"));
}

TEST_F(SignatureFailure, ADigestThatIsNotComputed) {
    const auto expectNone = [this] {
        ExpectNoDigest([this] { OpenEnvelope(envelope, {&key, 1}); });
        ExpectNoDigest([] { ReadPublicKey(kKeyA); });
        ExpectNoDigest([] { ShareNumber("{}", {}); });
    };
    for (const NTSTATUS status : kStatuses) {
        {
            const ScopedReplacement creating(doubles::BCryptCreateHash,
                                             [&](auto...) { return status; });
            expectNone();
        }
        {
            const ScopedReplacement adding(doubles::BCryptHashData,
                                           [&](auto...) { return status; });
            expectNone();
        }
        const ScopedReplacement finishing(doubles::BCryptFinishHash,
                                          [&](auto...) { return status; });
        expectNone();
    }
}

TEST(CurrentTimeFailure, CountsFrom1970InSeconds) {
    // 2026-11-22T18:31:00.9999999Z, in tenths of microseconds since 1601.
    constexpr std::uint64_t kUnits = (1795372260ULL + 11644473600ULL) * 10000000 + 9999999;
    const ScopedReplacement clock(doubles::GetSystemTimeAsFileTime, [](LPFILETIME time) {
        time->dwLowDateTime = static_cast<DWORD>(kUnits);
        time->dwHighDateTime = static_cast<DWORD>(kUnits >> 32U);
    });
    EXPECT_EQ(CurrentTime(), 1795372260);
}

}  // namespace
}  // namespace updater
