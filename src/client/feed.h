#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "client/feed_time.h"
#include "client/version_number.h"

namespace updater {

/// What one publication of a channel says: its newest release and whom it is for. Texts are UTF-8.
struct Feed {
    VersionNumber version;
    /// The setup program's size in bytes and its SHA-256 digest, 64 lower-case digits.
    std::uint64_t size = 0;
    std::string sha256;
    /// Of the setup program: absolute, or relative to the feed's address; see
    /// client/feed_address.h.
    std::string address;
    /// Increases with every publication.
    std::uint32_t issue = 0;
    UnixTime published = 0;
    UnixTime expires = 0;
    std::string channel;
    /// The lowest version that may update directly.
    VersionNumber lowestVersion;
    /// The share of machines that it is for, in percent.
    std::uint32_t share = 100;
    /// The address of the release's notes, or empty.
    std::string notes;

    friend bool operator==(const Feed&, const Feed&) = default;
};

/// Reads a payload. Keys that it does not know are ignored; a known one with a value outside its
/// limits, a missing one or one that stands twice raises `ClientFailure` APP_UPDATE_FEED_MALFORMED,
/// whose sentence names the key.
Feed ReadFeed(std::string_view payload);

/// Returns the payload of a feed, in the one form in which the release tool writes it. Raises
/// `ClientFailure` APP_UPDATE_FEED_MALFORMED, as `ReadFeed` does, for what that would refuse.
std::string WriteFeed(const Feed& feed);

/// Reads a moment in the form "2026-11-22T18:31:00Z"; raises what `ReadFeed` does, with `key`.
UnixTime ReadFeedTime(std::string_view text, std::string_view key);

/// Whether a text is a channel's name: 1 to 32 lower-case letters, digits and hyphens.
bool IsChannelName(std::string_view text);

}  // namespace updater
