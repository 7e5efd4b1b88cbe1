#include "client/text_digest.h"

#include <optional>

#include "client/failure.h"

namespace updater {

Sha256Digest DigestOfText(std::string_view text) {
    const std::optional<Sha256> digest = BeginSha256();
    const std::optional<Sha256Digest> bytes =
        digest && AddToSha256(*digest, text) ? FinishSha256(*digest) : std::nullopt;
    if (!bytes) {
        throw ClientFailure(APP_UPDATE_SYSTEM_ERROR, "The system computes no SHA-256 digest");
    }
    return *bytes;
}

}  // namespace updater
