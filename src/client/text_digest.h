#pragma once

#include <string_view>

#include "support/sha256.h"

namespace updater {

/// Returns the SHA-256 digest of the text's bytes. Raises `ClientFailure` APP_UPDATE_SYSTEM_ERROR
/// when the system computes none.
Sha256Digest DigestOfText(std::string_view text);

}  // namespace updater
