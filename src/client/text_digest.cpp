#include "client/text_digest.h"

#include "client/digest.h"

namespace updater {

Sha256Digest DigestOfText(std::string_view text) {
    const Sha256 digest = StartSha256();
    FeedSha256(digest, text);
    return EndSha256(digest);
}

}  // namespace updater
