#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "client/ecdsa_der.h"

namespace updater {

/// A public key on the curve P-256.
struct PublicKey {
    /// The SHA-256 digest of its DER form (SubjectPublicKeyInfo), 64 lower-case digits.
    std::string id;
    EcdsaPoint point{};
};

/// Reads the text of a PEM file ("PUBLIC KEY"), or the base64 text between its first and last line;
/// nothing for anything else, a key on another curve or a point that is not on the curve included.
/// Raises `ClientFailure` APP_UPDATE_SYSTEM_ERROR when the system computes no digests or does not
/// know the curve.
std::optional<PublicKey> ReadPublicKey(std::string_view text);

/// Whether the signature of the message (ECDSA with SHA-256) is the key's. Raises `ClientFailure`
/// APP_UPDATE_SYSTEM_ERROR when the system cannot tell.
bool IsSignedBy(const PublicKey& key, std::string_view message, const EcdsaSignature& signature);

}  // namespace updater
