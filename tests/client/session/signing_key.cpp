#include "client/session/signing_key.h"

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <stdexcept>
#include <vector>

#include "client/base64.h"
#include "client/envelope.h"
#include "client/signature.h"
#include "client/text_digest.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

constexpr std::size_t kNumberBytes = 32;

// What stands before the point in a public key's DER form.
constexpr std::string_view kKeyPrefix(
    "\x30\x59\x30\x13\x06\x07\x2A\x86\x48\xCE\x3D\x02\x01\x06\x08\x2A\x86\x48\xCE\x3D\x03\x01\x07"
    "\x03\x42\x00\x04",
    27);

void Require(NTSTATUS status) {
    if (status < 0) {
        throw std::runtime_error("The system's cryptography refuses: " + std::to_string(status));
    }
}

std::string PointOf(BCRYPT_KEY_HANDLE key) {
    std::string blob(sizeof(BCRYPT_ECCKEY_BLOB) + 2 * kNumberBytes, '\0');
    ULONG size = 0;
    Require(BCryptExportKey(key, nullptr, BCRYPT_ECCPUBLIC_BLOB,
                            reinterpret_cast<UCHAR*>(blob.data()), static_cast<ULONG>(blob.size()),
                            &size, 0));
    return blob.substr(sizeof(BCRYPT_ECCKEY_BLOB));
}

std::string DerNumber(std::string_view number) {
    number.remove_prefix(number.find_first_not_of('\0'));
    std::string content(static_cast<unsigned char>(number.front()) >= 0x80 ? 1 : 0, '\0');
    content += number;
    return "\x02" + std::string(1, static_cast<char>(content.size())) + content;
}

}  // namespace

SigningKey::SigningKey() {
    BCRYPT_KEY_HANDLE created = nullptr;
    BCRYPT_ALG_HANDLE provider = nullptr;
    Require(BCryptOpenAlgorithmProvider(&provider, BCRYPT_ECDSA_P256_ALGORITHM, nullptr, 0));
    const NTSTATUS status = BCryptGenerateKeyPair(provider, &created, 256, 0);
    key.reset(created);
    Require(status);
    Require(BCryptFinalizeKeyPair(created, 0));
    BCryptCloseAlgorithmProvider(provider, 0);
    publicText = Utf8ToWide(EncodeBase64(std::string(kKeyPrefix) + PointOf(created)));
    const std::optional<PublicKey> read = ReadPublicKey(WideToUtf8(publicText));
    id = read.value().id;
}

std::string SigningKey::Envelope(std::string_view payload) const {
    auto digest = DigestOfText(PreAuthenticationEncoding(payload));
    std::string numbers(2 * kNumberBytes, '\0');
    ULONG size = 0;
    Require(BCryptSignHash(key.get(), nullptr, reinterpret_cast<UCHAR*>(digest.data()),
                           static_cast<ULONG>(digest.size()),
                           reinterpret_cast<UCHAR*>(numbers.data()),
                           static_cast<ULONG>(numbers.size()), &size, 0));
    const std::string both = DerNumber(std::string_view(numbers).substr(0, kNumberBytes)) +
                             DerNumber(std::string_view(numbers).substr(kNumberBytes));
    return MakeEnvelope(payload, id,
                        "\x30" + std::string(1, static_cast<char>(both.size())) + both);
}

}  // namespace updater
