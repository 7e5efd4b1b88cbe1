#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "support/windows_api.h"

// After the Windows types that it needs.
#include <winhttp.h>

namespace bench {

struct InternetCloser {
    using pointer = HINTERNET;
    void operator()(HINTERNET handle) const noexcept { WinHttpCloseHandle(handle); }
};
using UniqueInternet = std::unique_ptr<void, InternetCloser>;

/// A request over HTTPS with a session and a connection of its own.
struct Request {
    UniqueInternet session;
    UniqueInternet connection;
    UniqueInternet handle;
};

/// Asks for a file with bare calls of WinHTTP, one after the other, and receives the answer's head.
/// `header` is a line such as L"If-None-Match: ...", or empty. Raises `std::runtime_error`.
Request SendRequest(const std::wstring& host, std::uint16_t port, const std::wstring& target,
                    const std::wstring& header);

/// Returns the answer's status.
std::uint32_t StatusOf(const Request& request);

/// Returns the answer's entity tag, and raises `std::runtime_error` if it has none.
std::wstring EntityTagOf(const Request& request);

}  // namespace bench
