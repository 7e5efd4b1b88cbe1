#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "client/address.h"
#include "client/cancellation.h"

namespace updater {

/// How long to wait for a connection, and for the next bytes of an answer, in milliseconds.
struct TransportLimits {
    std::uint32_t connect = 30000;
    std::uint32_t silence = 30000;
};

struct HttpsRequest {
    /// Absolute: "https://...".
    std::wstring address;
    /// Lines such as "If-None-Match: ...".
    std::vector<std::wstring> headers;
};

/// The head of an answer, redirections followed.
struct HttpsHead {
    std::uint32_t status = 0;
    /// The body's length in bytes, if the server has said it.
    std::optional<std::uint64_t> length;
    /// The headers "ETag", "Last-Modified" and "Content-Range"; empty when there is none.
    std::wstring entityTag;
    std::wstring lastModified;
    std::wstring contentRange;
};

/// What the caller does with an answer. `takeHead` returns whether it wants the body; `takeBytes`
/// gets the body's portions in their order. What they raise ends the request and goes through.
struct HttpsReceiver {
    std::function<bool(const HttpsHead& head)> takeHead;
    std::function<void(std::span<const char> bytes)> takeBytes;
};

/// Connections to servers, over HTTPS alone, by the system's proxy settings.
struct Transport;
struct TransportCloser {
    void operator()(Transport* transport) const noexcept;
};
using UniqueTransport = std::unique_ptr<Transport, TransportCloser>;

/// Raises `ClientFailure` APP_UPDATE_SYSTEM_ERROR. `cancellation` ends any request at once; it must
/// live longer than the transport.
UniqueTransport OpenTransport(const TransportLimits& limits, const Cancellation& cancellation);

/// Asks for one file and hands the answer to the receiver. Redirections are followed to HTTPS only,
/// five at most. Raises `ClientFailure` APP_UPDATE_NO_NETWORK, APP_UPDATE_CERTIFICATE_REFUSED,
/// APP_UPDATE_REDIRECT_REFUSED, APP_UPDATE_CANCELLED, APP_UPDATE_SYSTEM_ERROR, or
/// APP_UPDATE_INVALID_ARGUMENT for an address that is none. An answer with any status is the
/// receiver's to judge, but for a proxy's 407: APP_UPDATE_SERVER_ERROR.
void Fetch(Transport& transport, const HttpsRequest& request, const HttpsReceiver& receiver);

}  // namespace updater
