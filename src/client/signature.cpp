#include "client/signature.h"

#include "support/windows_api.h"

// After the Windows types that it needs.
#include <bcrypt.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "client/base64.h"
#include "client/ecdsa_curve.h"
#include "client/failure.h"
#include "client/text_digest.h"

namespace updater {

namespace {

// ntstatus.h, which has it, cannot be included beside windows.h.
constexpr NTSTATUS kInvalidSignature = static_cast<NTSTATUS>(0xC000A000);

struct ProviderCloser {
    using pointer = BCRYPT_ALG_HANDLE;
    void operator()(BCRYPT_ALG_HANDLE provider) const noexcept {
        BCryptCloseAlgorithmProvider(provider, 0);
    }
};
using UniqueProvider = std::unique_ptr<void, ProviderCloser>;

struct KeyDestroyer {
    using pointer = BCRYPT_KEY_HANDLE;
    void operator()(BCRYPT_KEY_HANDLE key) const noexcept { BCryptDestroyKey(key); }
};
using UniqueKey = std::unique_ptr<void, KeyDestroyer>;

[[noreturn]] void RaiseSystemFailure(NTSTATUS status) {
    throw ClientFailure(APP_UPDATE_SYSTEM_ERROR, "The system verifies no signatures",
                        static_cast<std::uint32_t>(status));
}

UniqueProvider OpenEcdsaProvider() {
    BCRYPT_ALG_HANDLE provider = nullptr;
    const NTSTATUS status =
        BCryptOpenAlgorithmProvider(&provider, BCRYPT_ECDSA_P256_ALGORITHM, nullptr, 0);
    if (status < 0) {
        RaiseSystemFailure(status);
    }
    return UniqueProvider(provider);
}

UniqueKey ImportKey(BCRYPT_ALG_HANDLE provider, const EcdsaPoint& point) {
    BCRYPT_ECCKEY_BLOB header{};
    header.dwMagic = BCRYPT_ECDSA_PUBLIC_P256_MAGIC;
    header.cbKey = static_cast<ULONG>(point.size() / 2);
    std::array<UCHAR, sizeof(header) + std::tuple_size_v<EcdsaPoint>> blob{};
    std::memcpy(blob.data(), &header, sizeof(header));
    std::ranges::copy(point, blob.begin() + sizeof(header));
    BCRYPT_KEY_HANDLE key = nullptr;
    const NTSTATUS status = BCryptImportKeyPair(provider, nullptr, BCRYPT_ECCPUBLIC_BLOB, &key,
                                                blob.data(), static_cast<ULONG>(blob.size()), 0);
    if (status < 0) {
        RaiseSystemFailure(status);
    }
    return UniqueKey(key);
}

// Returns the text between the first and the last line of a PEM file; other text as it is.
std::string_view WithoutMarks(std::string_view text) {
    constexpr std::string_view kBegin = "-----BEGIN PUBLIC KEY-----";
    constexpr std::string_view kEnd = "-----END PUBLIC KEY-----";
    if (text.starts_with(kBegin) && text.ends_with(kEnd) &&
        text.size() >= kBegin.size() + kEnd.size()) {
        text.remove_prefix(kBegin.size());
        text.remove_suffix(kEnd.size());
    }
    return text;
}

std::string_view WithoutOuterBlanks(std::string_view text) {
    constexpr char kBlanks[] = " \t\r\n";
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

std::string WithoutLineEnds(std::string_view text) {
    std::string joined(text);
    std::erase_if(joined, [](char character) { return character == '\r' || character == '\n'; });
    return joined;
}

}  // namespace

std::optional<PublicKey> ReadPublicKey(std::string_view text) {
    const std::optional<std::string> der =
        DecodeBase64(WithoutLineEnds(WithoutMarks(WithoutOuterBlanks(text))));
    const std::optional<EcdsaPoint> point = der ? ReadEcdsaPoint(*der) : std::nullopt;
    if (!point || !IsOnCurve(*point)) {
        return std::nullopt;
    }
    return PublicKey{Sha256Text(DigestOfText(*der)), *point};
}

bool IsSignedBy(const PublicKey& key, std::string_view message, const EcdsaSignature& signature) {
    const UniqueProvider provider = OpenEcdsaProvider();
    const UniqueKey importedKey = ImportKey(provider.get(), key.point);
    Sha256Digest digest = DigestOfText(message);
    EcdsaSignature numbers = signature;
    const NTSTATUS status = BCryptVerifySignature(importedKey.get(), nullptr, digest.data(),
                                                  static_cast<ULONG>(digest.size()), numbers.data(),
                                                  static_cast<ULONG>(numbers.size()), 0);
    if (status < 0 && status != kInvalidSignature) {
        RaiseSystemFailure(status);
    }
    // Zero alone is a success: a warning or an information is none here.
    return status == 0;
}

}  // namespace updater
