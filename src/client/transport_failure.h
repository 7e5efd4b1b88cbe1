#pragma once

#include <cstdint>
#include <string>

namespace updater {

// What a request that fails is told as: `ClientFailure`, with the number and, where there is one,
// the address.

/// For a call that has nothing to do with the server: APP_UPDATE_SYSTEM_ERROR.
[[noreturn]] void RaiseTransportSystemError(std::uint32_t error);

/// For the error number of a request: APP_UPDATE_CERTIFICATE_REFUSED, APP_UPDATE_NO_NETWORK, or
/// APP_UPDATE_SYSTEM_ERROR for what is the machine's own trouble.
[[noreturn]] void RaiseTransportFailure(const std::wstring& address, std::uint32_t error);

/// For an answer that ends before its end: APP_UPDATE_NO_NETWORK.
[[noreturn]] void RaiseBrokenConnection(const std::wstring& address);

/// APP_UPDATE_SERVER_ERROR, for a proxy that lets nobody through without a name and a password.
[[noreturn]] void RaiseProxyWantsLogin(const std::wstring& address);

/// APP_UPDATE_REDIRECT_REFUSED.
[[noreturn]] void RaiseRedirectRefused(const std::wstring& address, const std::wstring& location);

}  // namespace updater
