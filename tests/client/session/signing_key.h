#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "support/windows_api.h"

// After the Windows types that it needs.
#include <bcrypt.h>

namespace updater {

struct BcryptKeyDestroyer {
    using pointer = BCRYPT_KEY_HANDLE;
    void operator()(BCRYPT_KEY_HANDLE key) const noexcept { BCryptDestroyKey(key); }
};

/// A new key pair on the curve P-256, as a publisher has one.
struct SigningKey {
    SigningKey();

    /// Returns an envelope of the payload with a good signature.
    [[nodiscard]] std::string Envelope(std::string_view payload) const;

    std::unique_ptr<void, BcryptKeyDestroyer> key;
    /// The text that an application holds.
    std::wstring publicText;
    std::string id;
};

}  // namespace updater
