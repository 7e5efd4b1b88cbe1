#pragma once

#include <string>

namespace updater {

// Feeds that were signed once by openssl, so that the tests need none: with two keys, of which
// there are only the public halves.

inline constexpr char kPublicKey[] =
    "-----BEGIN PUBLIC KEY-----\n"
    "MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEOvLVy0589mcD1XO4dxLOe/spPPTx\n"
    "YKKX2ktM+JawJDKtTEsMuH8HrAk8Z+0U84Tduocbo4+b/MzqdabDPWlssQ==\n"
    "-----END PUBLIC KEY-----\n";
inline constexpr char kPublicKeyId[] =
    "7b59d2075b2d2e6cd8d0e02a49f4318d402fc760ae153a0bcf5f2ba06939306c";

inline constexpr char kOtherPublicKey[] =
    "-----BEGIN PUBLIC KEY-----\n"
    "MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEZ4kHJHc1hC75Ip6SiYllrKnrtqRK\n"
    "NqBa4gXlq0myrImcX18ir2iLiZRKjmoypTlCBCx6AB26iq96JcCXXm29og==\n"
    "-----END PUBLIC KEY-----\n";
inline constexpr char kOtherPublicKeyId[] =
    "01a45c6c90c2f4198d7ee22dd964344b5980c1ab79c1ae8676919efe67ef5606";

/// What all the feeds are of.
inline constexpr char kStoredSetup[] = "a setup program";

struct StoredFeed {
    std::string payload;
    /// By the first key, in DER.
    std::string signature;
};

/// Version 2.0.0.0, issue 7 of the channel "stable", from 2026-11-22T18:31:00Z to
/// 2099-12-31T23:59:59Z.
StoredFeed PlainFeed();
/// The same with what a feed need not have: lowest version 1.2.0.0, share 5 and notes.
StoredFeed FullFeed();
/// The same, but it was good until 2020-01-01T00:00:00Z.
StoredFeed ExpiredFeed();
/// The same of the channel "beta".
StoredFeed BetaFeed();
/// The same with the highest issue number that there is.
StoredFeed LastFeed();

/// The plain feed's signature by the other key, in DER.
std::string SignatureByOtherKey();

/// Returns the feed as it is published.
std::string PublishedText(const StoredFeed& feed);

}  // namespace updater
