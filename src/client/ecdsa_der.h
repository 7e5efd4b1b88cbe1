#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace updater {

// The forms in which keys and signatures on the curve P-256 are exchanged. A byte that could be
// another one without a change of meaning is refused.

/// A point's coordinates X and Y, big-endian.
using EcdsaPoint = std::array<std::uint8_t, 64>;

/// The two numbers r and s of a signature, big-endian.
using EcdsaSignature = std::array<std::uint8_t, 64>;

/// Reads a public key's DER form (SubjectPublicKeyInfo) with the point uncompressed; nothing for
/// anything else. Does not ask whether the point is on the curve.
std::optional<EcdsaPoint> ReadEcdsaPoint(std::string_view der);

/// Reads a signature's DER form, as `openssl dgst -sha256 -sign` gives it; nothing unless it is the
/// one form that DER has for it and each number is neither 0 nor as large as the curve's order.
std::optional<EcdsaSignature> ReadEcdsaSignature(std::string_view der);

}  // namespace updater
