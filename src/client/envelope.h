#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "client/signature.h"

namespace updater {

// A feed travels in a DSSE envelope: the payload in base64, its type, and signatures with the ids
// of their keys. What is signed is not the payload itself but its pre-authentication encoding,
// which has the type in it.

inline constexpr char kFeedPayloadType[] = "application/vnd.application-update-feed+json";

/// The most bytes that an envelope may have.
inline constexpr std::size_t kLargestEnvelope = std::size_t{1024} * 1024;

/// Returns what is signed.
std::string PreAuthenticationEncoding(std::string_view payload);

/// Returns the payload of an envelope that has a good signature by one of the keys. Raises
/// `ClientFailure` APP_UPDATE_FEED_MALFORMED for what is no envelope, such as one with a name that
/// the form does not have or more than 16 signatures, and APP_UPDATE_BAD_SIGNATURE when there is no
/// signature, none by a known key, or none that fits.
std::string OpenEnvelope(std::string_view envelope, std::span<const PublicKey> keys);

/// Returns an envelope, without a line feed, with one signature, given in DER.
std::string MakeEnvelope(std::string_view payload, std::string_view keyId,
                         std::string_view signature);

}  // namespace updater
