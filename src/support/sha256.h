#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace updater {

struct HashProviderCloser {
    void operator()(void* provider) const noexcept;
};
struct HashDestroyer {
    void operator()(void* hash) const noexcept;
};

/// A SHA-256 digest that is being computed by the system's provider.
struct Sha256 {
    std::unique_ptr<void, HashProviderCloser> provider;
    std::unique_ptr<void, HashDestroyer> hash;
};

using Sha256Digest = std::array<std::uint8_t, 32>;

/// Begins a digest; nothing when the system's provider cannot be used.
std::optional<Sha256> BeginSha256() noexcept;

/// Adds the next bytes, at most 4 GiB. Returns whether they were taken.
bool AddToSha256(const Sha256& digest, std::string_view bytes) noexcept;

/// Returns the digest of all that was added; nothing when the system fails. Nothing can be added
/// after that.
std::optional<Sha256Digest> FinishSha256(const Sha256& digest) noexcept;

/// Returns the digest as 64 lower-case hexadecimal characters.
std::string Sha256Text(const Sha256Digest& digest);

}  // namespace updater
