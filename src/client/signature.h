#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace updater {

/// A public key on the curve P-256.
struct PublicKey {
    /// The SHA-256 digest of its DER form (SubjectPublicKeyInfo), 64 lower-case digits.
    std::string id;
    /// The point's coordinates X and Y, big-endian.
    std::array<std::uint8_t, 64> point{};
};

/// The two numbers r and s of a signature, big-endian.
using EcdsaSignature = std::array<std::uint8_t, 64>;

/// Reads the text of a PEM file ("PUBLIC KEY"), or the base64 text between its first and last line;
/// nothing for anything else, a key on another curve or a point that is not on the curve included.
std::optional<PublicKey> ReadPublicKey(std::string_view text);

/// Reads a signature's DER form, as `openssl dgst -sha256 -sign` gives it; nothing unless it is the
/// one form that DER has for it and each number is of at most 32 bytes and not 0.
std::optional<EcdsaSignature> ReadEcdsaSignature(std::string_view der);

/// Whether the signature of the message (ECDSA with SHA-256) is the key's. Raises `ClientFailure`
/// APP_UPDATE_SYSTEM_ERROR when the system cannot tell.
bool IsSignedBy(const PublicKey& key, std::string_view message, const EcdsaSignature& signature);

}  // namespace updater
