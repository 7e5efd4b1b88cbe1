#include "support/file_digest.h"

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>

#include "support/file_reading.h"
#include "support/windows_api.h"

// After the Windows types that it needs.
#include <bcrypt.h>

namespace updater {

namespace {

constexpr std::size_t kDigestBytes = 32;
using Digest = std::array<unsigned char, kDigestBytes>;

struct AlgorithmCloser {
    using pointer = BCRYPT_ALG_HANDLE;
    void operator()(BCRYPT_ALG_HANDLE provider) const noexcept {
        BCryptCloseAlgorithmProvider(provider, 0);
    }
};
using UniqueAlgorithm = std::unique_ptr<void, AlgorithmCloser>;

struct HashDestroyer {
    using pointer = BCRYPT_HASH_HANDLE;
    void operator()(BCRYPT_HASH_HANDLE hash) const noexcept { BCryptDestroyHash(hash); }
};
using UniqueHash = std::unique_ptr<void, HashDestroyer>;

UniqueAlgorithm OpenSha256Provider() {
    BCRYPT_ALG_HANDLE provider = nullptr;
    const NTSTATUS status =
        BCryptOpenAlgorithmProvider(&provider, BCRYPT_SHA256_ALGORITHM, nullptr, 0);
    return UniqueAlgorithm(status < 0 ? nullptr : provider);
}

UniqueHash CreateHash(BCRYPT_ALG_HANDLE provider) {
    BCRYPT_HASH_HANDLE hash = nullptr;
    const NTSTATUS status = BCryptCreateHash(provider, &hash, nullptr, 0, nullptr, 0, 0);
    return UniqueHash(status < 0 ? nullptr : hash);
}

bool HashFile(const std::filesystem::path& path, BCRYPT_HASH_HANDLE hash) {
    const UniqueHandle file = OpenFileToRead(path);
    return file && VisitPortions(file.get(), [hash](std::span<char> portion) {
               return BCryptHashData(hash, reinterpret_cast<PUCHAR>(portion.data()),
                                     static_cast<ULONG>(portion.size()), 0) >= 0;
           });
}

std::optional<Digest> DigestOfFile(const std::filesystem::path& file, BCRYPT_HASH_HANDLE hash) {
    Digest digest{};
    if (!HashFile(file, hash) ||
        BCryptFinishHash(hash, digest.data(), static_cast<ULONG>(digest.size()), 0) < 0) {
        return std::nullopt;
    }
    return digest;
}

std::string ToHex(const Digest& digest) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * digest.size());
    for (const unsigned char byte : digest) {
        text.push_back(kDigits[byte >> 4U]);
        text.push_back(kDigits[byte & 0xFU]);
    }
    return text;
}

}  // namespace

std::string FileSha256Hex(const std::filesystem::path& file) {
    const UniqueAlgorithm provider = OpenSha256Provider();
    const UniqueHash hash = provider ? CreateHash(provider.get()) : nullptr;
    if (!hash) {
        throw std::runtime_error("SHA256 initialization failed");
    }
    const std::optional<Digest> digest = DigestOfFile(file, hash.get());
    if (!digest) {
        throw std::runtime_error("SHA256 verification failed");
    }
    return ToHex(*digest);
}

}  // namespace updater
