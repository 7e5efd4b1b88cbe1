#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace updater {

/// What stands in the address of something on a server.
struct HttpsAddress {
    std::wstring host;
    std::uint16_t port = 443;
    /// The path, which begins with a slash, and the query.
    std::wstring target;
};

/// Takes an absolute address apart. Raises `ClientFailure` APP_UPDATE_INVALID_ARGUMENT for one that
/// is not "https", that has a user's name in it, or that is none.
HttpsAddress ReadHttpsAddress(std::wstring_view address);

/// Returns an address relative to another one, which is absolute, as an absolute one, by the rules
/// of URLs. Percent signs stay what they are; what follows a "#" is left out. Raises
/// `ClientFailure` APP_UPDATE_INVALID_ARGUMENT for what is no address, or has a user's name in it.
std::wstring ResolveAddress(std::wstring_view base, std::wstring_view relative);

}  // namespace updater
