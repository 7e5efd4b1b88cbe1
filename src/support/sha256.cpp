#include "support/sha256.h"

#include <utility>

#include "support/windows_api.h"

// After the Windows types that it needs.
#include <bcrypt.h>

namespace updater {

namespace {

std::unique_ptr<void, HashProviderCloser> OpenProvider() noexcept {
    BCRYPT_ALG_HANDLE provider = nullptr;
    const NTSTATUS status =
        BCryptOpenAlgorithmProvider(&provider, BCRYPT_SHA256_ALGORITHM, nullptr, 0);
    return std::unique_ptr<void, HashProviderCloser>(status < 0 ? nullptr : provider);
}

std::unique_ptr<void, HashDestroyer> CreateHash(BCRYPT_ALG_HANDLE provider) noexcept {
    BCRYPT_HASH_HANDLE hash = nullptr;
    const NTSTATUS status = BCryptCreateHash(provider, &hash, nullptr, 0, nullptr, 0, 0);
    return std::unique_ptr<void, HashDestroyer>(status < 0 ? nullptr : hash);
}

}  // namespace

void HashProviderCloser::operator()(void* provider) const noexcept {
    BCryptCloseAlgorithmProvider(provider, 0);
}

void HashDestroyer::operator()(void* hash) const noexcept {
    BCryptDestroyHash(hash);
}

std::optional<Sha256> BeginSha256() noexcept {
    Sha256 digest;
    digest.provider = OpenProvider();
    if (digest.provider) {
        digest.hash = CreateHash(digest.provider.get());
    }
    return digest.hash ? std::optional(std::move(digest)) : std::nullopt;
}

bool AddToSha256(const Sha256& digest, std::string_view bytes) noexcept {
    // BCryptHashData only reads its input but is declared without const; the cast costs no copy.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the function only reads the bytes
    auto* const input = reinterpret_cast<PUCHAR>(const_cast<char*>(bytes.data()));
    return BCryptHashData(digest.hash.get(), input, static_cast<ULONG>(bytes.size()), 0) >= 0;
}

std::optional<Sha256Digest> FinishSha256(const Sha256& digest) noexcept {
    Sha256Digest bytes{};
    const NTSTATUS status =
        BCryptFinishHash(digest.hash.get(), bytes.data(), static_cast<ULONG>(bytes.size()), 0);
    return status < 0 ? std::nullopt : std::optional(bytes);
}

std::string Sha256Text(const Sha256Digest& digest) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * digest.size());
    for (const std::uint8_t byte : digest) {
        text.push_back(kDigits[byte >> 4U]);
        text.push_back(kDigits[byte & 0xFU]);
    }
    return text;
}

}  // namespace updater
