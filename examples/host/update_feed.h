#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "application.h"

namespace corvellan {

/// A newer version that the feed offers.
struct UpdateOffer {
    std::wstring version;
    std::filesystem::path setup;
    std::uint64_t size;
    std::wstring sha256;
};

/// Reads "update-feed.json", a file such as
///
///   {"version":"2.0.0.0","size":123456,"sha256":"64 lower-case digits","setup":"v2.exe"}
///
/// from the directory that the environment variable CORVELLAN_FEED names, or else from the
/// installation directory. The setup program's path is relative to the feed's directory. A real
/// application downloads both and checks the feed's signature.
UpdateOffer ReadUpdateFeed(const Application& application);

}  // namespace corvellan
