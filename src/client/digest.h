#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "client/cancellation.h"
#include "support/handle.h"
#include "support/sha256.h"

namespace updater {

// Digests as those of support/sha256.h; each of these raises `ClientFailure`
// APP_UPDATE_SYSTEM_ERROR when the system computes none.

Sha256 StartSha256();
void FeedSha256(const Sha256& digest, std::string_view bytes);
Sha256Digest EndSha256(const Sha256& digest);

/// Returns the digest of an open file from its position to its end, 64 lower-case digits. Raises
/// also APP_UPDATE_CANCELLED, and APP_UPDATE_FILE_ERROR, with the file's path, when it cannot be
/// read.
std::string Sha256OfFile(const UniqueHandle& handle, const std::filesystem::path& file,
                         const Cancellation& cancellation);

}  // namespace updater
