#include "support/file_digest.h"

#include <array>
#include <cstddef>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>

#include "support/windows_api.h"

// After the Windows types that it needs.
#include <bcrypt.h>

namespace updater {

namespace {

constexpr std::size_t kChunkBytes = 65536;
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

bool HashStream(std::ifstream& stream, BCRYPT_HASH_HANDLE hash) {
    // Not cleared: for a small file that would take longer than its digest.
    char chunk[kChunkBytes];
    bool hashed = stream.is_open();
    while (hashed && stream.good()) {
        stream.read(chunk, sizeof(chunk));
        hashed = BCryptHashData(hash, reinterpret_cast<PUCHAR>(chunk),
                                static_cast<ULONG>(stream.gcount()), 0) >= 0;
    }
    return hashed && !stream.bad();
}

std::optional<Digest> DigestOfFile(const std::filesystem::path& file, BCRYPT_HASH_HANDLE hash) {
    std::ifstream stream(file, std::ios::binary);
    Digest digest{};
    if (!HashStream(stream, hash) ||
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
