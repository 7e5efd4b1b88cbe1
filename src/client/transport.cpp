#include "client/transport.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <charconv>
#include <system_error>
#include <utility>

#include "client/failure.h"
#include "client/transport_failure.h"
#include "support/handle.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

// After the Windows types that it needs.
#include <winhttp.h>

// A request runs in WinHTTP's asynchronous mode, so that the wait for it ends when its time is up
// or the application cancels, whatever the server does and whatever WinHTTP is waiting for. WinHTTP
// may then go on with it for a moment, and writes to its buffers; so these are not the caller's
// own, but live until WinHTTP says that the request's handle is closed.

namespace updater {

namespace {

// The first portion, and the largest one; each may have twice as many bytes as the one before.
// Where WinHTTP waits until a portion is full, what has come of it is lost when the connection
// breaks.
constexpr std::size_t kFirstPortion = 8192;
constexpr std::size_t kLargestPortion = 262144;
constexpr int kMostRedirects = 5;

struct InternetCloser {
    using pointer = HINTERNET;
    void operator()(HINTERNET handle) const noexcept { WinHttpCloseHandle(handle); }
};
using UniqueInternet = std::unique_ptr<void, InternetCloser>;

// Counts what the end of a transport has to wait for.
struct Closings {
    // The transport itself and the requests that WinHTTP has not let go of.
    std::atomic<int> open = 1;
    UniqueHandle allClosed;
};

// Returns whether it was the last one.
bool CloseOne(Closings& closings) noexcept {
    return closings.open.fetch_sub(1) == 1;
}

// What WinHTTP's threads and the waiting one have in common.
struct RequestState {
    explicit RequestState(Closings& transportClosings) : closings(transportClosings) {}

    Closings& closings;
    HINTERNET handle = nullptr;
    // Who may still use the handle: the waiting thread, and one that starts a reading.
    std::atomic<int> users = 1;
    // Becomes signalled when there is something new below.
    UniqueHandle changed;
    // Whether WinHTTP has done what it was told, or has failed to.
    std::atomic<bool> isDone = false;
    DWORD error = ERROR_SUCCESS;
    DWORD bytes = 0;
    // When the request had been sent, or 0; and when something of the answer's body last came.
    std::atomic<ULONGLONG> sentAt = 0;
    std::atomic<ULONGLONG> lastArrival = 0;
    // One is filled while the other one is used.
    std::array<std::array<char, kLargestPortion>, 2> portions{};
    std::size_t portion = 0;
    std::size_t size = kFirstPortion / 2;
};

// The last user closes the handle, and WinHTTP then gives the state back.
struct RequestLeaver {
    void operator()(RequestState* state) const noexcept {
        if (state->users.fetch_sub(1) == 1) {
            WinHttpCloseHandle(state->handle);
        }
    }
};
using UniqueRequest = std::unique_ptr<RequestState, RequestLeaver>;

struct OpenRequest {
    UniqueInternet connection;
    UniqueRequest state;
};

// What the flags of a refused certificate stand for, in the order of what helps most.
DWORD SecureFailureError(DWORD flags) noexcept {
    constexpr std::array<std::pair<DWORD, DWORD>, 7> kErrors = {{
        {WINHTTP_CALLBACK_STATUS_FLAG_CERT_DATE_INVALID, ERROR_WINHTTP_SECURE_CERT_DATE_INVALID},
        {WINHTTP_CALLBACK_STATUS_FLAG_CERT_CN_INVALID, ERROR_WINHTTP_SECURE_CERT_CN_INVALID},
        {WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CA, ERROR_WINHTTP_SECURE_INVALID_CA},
        {WINHTTP_CALLBACK_STATUS_FLAG_CERT_REVOKED, ERROR_WINHTTP_SECURE_CERT_REVOKED},
        {WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CERT, ERROR_WINHTTP_SECURE_INVALID_CERT},
        {WINHTTP_CALLBACK_STATUS_FLAG_CERT_REV_FAILED, ERROR_WINHTTP_SECURE_CERT_REV_FAILED},
        {WINHTTP_CALLBACK_STATUS_FLAG_SECURITY_CHANNEL_ERROR, ERROR_WINHTTP_SECURE_CHANNEL_ERROR},
    }};
    const auto* const found = std::ranges::find_if(
        kErrors, [flags](const auto& entry) { return (entry.first & flags) != 0; });
    return found == kErrors.end() ? DWORD{ERROR_WINHTTP_SECURE_FAILURE} : found->second;
}

void End(RequestState& state, DWORD error, DWORD bytes) noexcept {
    // What exactly was refused is told before the failure itself.
    if (error != ERROR_WINHTTP_SECURE_FAILURE || state.error == ERROR_SUCCESS) {
        state.error = error;
    }
    state.bytes = bytes;
    state.isDone = true;
    SetEvent(state.changed.get());
}

void Release(RequestState* state) noexcept {
    Closings& closings = state->closings;
    std::unique_ptr<RequestState>(state).reset();
    if (CloseOne(closings)) {
        SetEvent(closings.allClosed.get());
    }
}

// Called by WinHTTP, on its own threads or within a call.
void CALLBACK OnProgress(HINTERNET, DWORD_PTR context, DWORD status, LPVOID information,
                         DWORD length) noexcept {
    auto* const state = std::bit_cast<RequestState*>(context);
    switch (status) {
        case WINHTTP_CALLBACK_STATUS_REQUEST_SENT:
            state->sentAt = GetTickCount64();
            SetEvent(state->changed.get());
            break;
        case WINHTTP_CALLBACK_STATUS_RESPONSE_RECEIVED:
            state->lastArrival = GetTickCount64();
            break;
        case WINHTTP_CALLBACK_STATUS_SECURE_FAILURE:
            state->error = SecureFailureError(*static_cast<const DWORD*>(information));
            break;
        case WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE:
        case WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE:
            End(*state, ERROR_SUCCESS, 0);
            break;
        case WINHTTP_CALLBACK_STATUS_READ_COMPLETE:
            End(*state, ERROR_SUCCESS, length);
            break;
        case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR:
            End(*state, static_cast<const WINHTTP_ASYNC_RESULT*>(information)->dwError, 0);
            break;
        case WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING:
            Release(state);
            break;
        default:
            break;
    }
}

UniqueHandle CreateStateEvent(BOOL manualReset) {
    UniqueHandle event = OwnHandle(CreateEventW(nullptr, manualReset, FALSE, nullptr));
    if (!event) {
        RaiseTransportSystemError(GetLastError());
    }
    return event;
}

void SetOption(const UniqueInternet& handle, DWORD option, DWORD value) {
    if (WinHttpSetOption(handle.get(), option, &value, sizeof(value)) == 0) {
        RaiseTransportSystemError(GetLastError());
    }
}

// An older Windows 10 does not know version 1.3 and refuses its flag.
void RequireSafeProtocols(const UniqueInternet& session) {
    DWORD protocols = WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_2 | WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_3;
    if (WinHttpSetOption(session.get(), WINHTTP_OPTION_SECURE_PROTOCOLS, &protocols,
                         sizeof(protocols)) == 0) {
        SetOption(session, WINHTTP_OPTION_SECURE_PROTOCOLS, WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_2);
    }
}

UniqueInternet OpenSession(const TransportLimits& limits) {
    UniqueInternet session(WinHttpOpen(L"Update-Client/1.0", WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY,
                                       WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS,
                                       WINHTTP_FLAG_ASYNC));
    if (!session) {
        RaiseTransportSystemError(GetLastError());
    }
    RequireSafeProtocols(session);
    SetOption(session, WINHTTP_OPTION_REDIRECT_POLICY, WINHTTP_OPTION_REDIRECT_POLICY_NEVER);
    // The waits below have the limits. With these, WinHTTP itself does not go on much longer with
    // what nobody waits for any more.
    const auto connect = static_cast<int>(limits.connect);
    const auto silence = static_cast<int>(limits.silence);
    if (WinHttpSetTimeouts(session.get(), connect, connect, silence, silence) == 0) {
        RaiseTransportSystemError(GetLastError());
    }
    return session;
}

}  // namespace

struct Transport {
    TransportLimits limits;
    const Cancellation& cancellation;
    UniqueInternet session;
    Closings closings;
};

namespace {

// A place where a request is on its way, for what is said when it fails.
struct Attempt {
    const Transport& transport;
    const std::wstring& address;
    const OpenRequest& request;
};

// From here on WinHTTP has the state, and gives it back when the handle is closed.
UniqueRequest HandOver(std::unique_ptr<RequestState> state, UniqueInternet handle) {
    auto context = std::bit_cast<DWORD_PTR>(state.get());
    constexpr DWORD kNotifications =
        WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS | WINHTTP_CALLBACK_FLAG_HANDLES |
        WINHTTP_CALLBACK_FLAG_SEND_REQUEST | WINHTTP_CALLBACK_FLAG_RECEIVE_RESPONSE |
        WINHTTP_CALLBACK_FLAG_SECURE_FAILURE;
    if (WinHttpSetOption(handle.get(), WINHTTP_OPTION_CONTEXT_VALUE, &context, sizeof(context)) ==
            0 ||
        WinHttpSetStatusCallback(handle.get(), OnProgress, kNotifications, 0) ==
            WINHTTP_INVALID_STATUS_CALLBACK) {
        RaiseTransportSystemError(GetLastError());
    }
    ++state->closings.open;
    state->handle = handle.release();
    return UniqueRequest(state.release());
}

OpenRequest PrepareRequest(Transport& transport, const HttpsAddress& address) {
    auto state = std::make_unique<RequestState>(transport.closings);
    state->changed = CreateStateEvent(FALSE);
    OpenRequest request;
    request.connection.reset(
        WinHttpConnect(transport.session.get(), address.host.c_str(), address.port, 0));
    if (!request.connection) {
        RaiseTransportSystemError(GetLastError());
    }
    UniqueInternet handle(WinHttpOpenRequest(
        request.connection.get(), L"GET", address.target.c_str(), nullptr, WINHTTP_NO_REFERER,
        WINHTTP_DEFAULT_ACCEPT_TYPES,
        WINHTTP_FLAG_SECURE | WINHTTP_FLAG_ESCAPE_DISABLE | WINHTTP_FLAG_ESCAPE_DISABLE_QUERY));
    if (!handle) {
        RaiseTransportSystemError(GetLastError());
    }
    // Wine's wait for the head, whose own limit is another one.
    SetOption(handle, WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, transport.limits.silence);
    SetOption(handle, WINHTTP_OPTION_DISABLE_FEATURE,
              WINHTTP_DISABLE_COOKIES | WINHTTP_DISABLE_AUTHENTICATION);
    request.state = HandOver(std::move(state), std::move(handle));
    return request;
}

// Starts one of WinHTTP's operations. What it reports when it has ended is awaited below.
template <typename Operation>
void Begin(const Attempt& attempt, Operation operation) {
    attempt.request.state->isDone = false;
    if (operation(attempt.request.state->handle) == 0) {
        RaiseTransportFailure(attempt.address, GetLastError());
    }
}

// Waits for the end of an operation, at most until the time that `deadline()` gives, which may
// become a later one meanwhile.
template <typename Deadline>
void Await(const Attempt& attempt, Deadline deadline) {
    const RequestState& state = *attempt.request.state;
    const std::array<HANDLE, 2> events = {attempt.transport.cancellation.event.get(),
                                          state.changed.get()};
    // Also where every operation has ended before anybody waits for it.
    RaiseIfCancelled(attempt.transport.cancellation);
    while (!state.isDone) {
        const ULONGLONG end = deadline();
        const ULONGLONG now = GetTickCount64();
        const DWORD rest = now < end ? static_cast<DWORD>(end - now) : 0;
        switch (
            WaitForMultipleObjects(static_cast<DWORD>(events.size()), events.data(), FALSE, rest)) {
            case WAIT_OBJECT_0:
                RaiseCancelled(attempt.transport.cancellation);
            case WAIT_OBJECT_0 + 1:
                break;
            case WAIT_TIMEOUT:
                if (deadline() <= GetTickCount64()) {
                    RaiseTransportFailure(attempt.address, ERROR_WINHTTP_TIMEOUT);
                }
                break;
            default:
                RaiseTransportSystemError(GetLastError());
        }
    }
    if (state.error != ERROR_SUCCESS) {
        RaiseTransportFailure(attempt.address, state.error);
    }
}

// WinHTTP waits for the head as soon as the request is sent, or when it is told to. What has come
// of it does not count: a server may send one without an end.
ULONGLONG HeadDeadline(const Attempt& attempt, ULONGLONG begin) {
    const ULONGLONG sentAt = attempt.request.state->sentAt;
    return sentAt == 0 ? begin + attempt.transport.limits.connect
                       : sentAt + attempt.transport.limits.silence;
}

void SendRequest(const Attempt& attempt, const HttpsRequest& request) {
    std::wstring lines;
    for (const std::wstring& header : request.headers) {
        lines.append(header).append(L"\r\n");
    }
    Begin(attempt, [&](HINTERNET handle) {
        return WinHttpSendRequest(handle,
                                  lines.empty() ? WINHTTP_NO_ADDITIONAL_HEADERS : lines.c_str(),
                                  static_cast<DWORD>(lines.size()), WINHTTP_NO_REQUEST_DATA, 0, 0,
                                  std::bit_cast<DWORD_PTR>(attempt.request.state.get()));
    });
    const auto deadline = [&attempt, begin = GetTickCount64()] {
        return HeadDeadline(attempt, begin);
    };
    Await(attempt, deadline);
    Begin(attempt, [](HINTERNET handle) { return WinHttpReceiveResponse(handle, nullptr); });
    Await(attempt, deadline);
}

// Returns a header's text; an empty one when there is none.
std::wstring QueryHeader(const Attempt& attempt, DWORD header) {
    const HINTERNET handle = attempt.request.state->handle;
    std::wstring text;
    DWORD bytes = 0;
    while (WinHttpQueryHeaders(handle, header, WINHTTP_HEADER_NAME_BY_INDEX,
                               text.empty() ? nullptr : text.data(), &bytes,
                               WINHTTP_NO_HEADER_INDEX) == 0) {
        const DWORD error = GetLastError();
        if (error == ERROR_WINHTTP_HEADER_NOT_FOUND) {
            return {};
        }
        if (error != ERROR_INSUFFICIENT_BUFFER || bytes <= text.size() * sizeof(wchar_t)) {
            RaiseTransportFailure(attempt.address, error);
        }
        text.resize(bytes / sizeof(wchar_t));
    }
    text.resize(bytes / sizeof(wchar_t));
    return text;
}

std::optional<std::uint64_t> ReadLength(const std::wstring& text) {
    const std::string digits = WideToUtf8(text);
    std::uint64_t length = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), length);
    if (error != std::errc() || end != digits.data() + digits.size()) {
        return std::nullopt;
    }
    return length;
}

HttpsHead ReadHead(const Attempt& attempt) {
    HttpsHead head;
    const std::optional<std::uint64_t> status =
        ReadLength(QueryHeader(attempt, WINHTTP_QUERY_STATUS_CODE));
    if (!status) {
        RaiseTransportFailure(attempt.address, ERROR_WINHTTP_INVALID_SERVER_RESPONSE);
    }
    head.status = static_cast<std::uint32_t>(*status);
    head.length = ReadLength(QueryHeader(attempt, WINHTTP_QUERY_CONTENT_LENGTH));
    head.entityTag = QueryHeader(attempt, WINHTTP_QUERY_ETAG);
    head.lastModified = QueryHeader(attempt, WINHTTP_QUERY_LAST_MODIFIED);
    head.contentRange = QueryHeader(attempt, WINHTTP_QUERY_CONTENT_RANGE);
    return head;
}

// Runs on a thread of the system's pool.
void CALLBACK Read(PTP_CALLBACK_INSTANCE, PVOID context) noexcept {
    const UniqueRequest request(static_cast<RequestState*>(context));
    if (WinHttpReadData(request->handle, request->portions[request->portion].data(),
                        static_cast<DWORD>(request->size), nullptr) == 0) {
        End(*request, GetLastError(), 0);
    }
}

// Has the other portion filled. Wine may fill it within the call, on the calling thread: that must
// not be the one that waits.
void BeginReading(const Attempt& attempt) {
    RequestState& state = *attempt.request.state;
    state.portion = 1 - state.portion;
    state.size = std::min(2 * state.size, kLargestPortion);
    state.isDone = false;
    state.lastArrival = GetTickCount64();
    ++state.users;
    if (TrySubmitThreadpoolCallback(Read, &state, nullptr) == 0) {
        const DWORD error = GetLastError();
        RequestLeaver()(&state);
        RaiseTransportSystemError(error);
    }
}

// Bytes of a portion that is not full yet count as a sign of life.
DWORD AwaitPortion(const Attempt& attempt) {
    Await(attempt, [&attempt] {
        return attempt.request.state->lastArrival + attempt.transport.limits.silence;
    });
    return attempt.request.state->bytes;
}

// Returns how many bytes there were. The next portion comes in while the receiver has the last one.
std::uint64_t ReadBody(const Attempt& attempt, const HttpsReceiver& receiver) {
    std::uint64_t received = 0;
    BeginReading(attempt);
    for (DWORD bytes = AwaitPortion(attempt); bytes != 0; bytes = AwaitPortion(attempt)) {
        const RequestState& state = *attempt.request.state;
        const std::span<const char> complete(state.portions[state.portion].data(), bytes);
        BeginReading(attempt);
        received += bytes;
        receiver.takeBytes(complete);
    }
    return received;
}

void Receive(const Attempt& attempt, const HttpsHead& head, const HttpsReceiver& receiver) {
    if (!receiver.takeHead(head)) {
        return;
    }
    const std::uint64_t received = ReadBody(attempt, receiver);
    // Not every release of WinHTTP takes an early end for a failure.
    if (head.length && received < *head.length) {
        RaiseBrokenConnection(attempt.address);
    }
}

bool IsRedirect(std::uint32_t status) {
    return status == HTTP_STATUS_MOVED || status == HTTP_STATUS_REDIRECT ||
           status == HTTP_STATUS_REDIRECT_METHOD || status == HTTP_STATUS_REDIRECT_KEEP_VERB ||
           status == HTTP_STATUS_PERMANENT_REDIRECT;
}

// Returns where an answer leads to; nothing when it is the last one.
std::optional<std::wstring> ReadRedirect(const Attempt& attempt, const HttpsHead& head) {
    const std::wstring location =
        IsRedirect(head.status) ? QueryHeader(attempt, WINHTTP_QUERY_LOCATION) : std::wstring();
    if (location.empty()) {
        return std::nullopt;
    }
    try {
        std::wstring address = ResolveAddress(attempt.address, location);
        static_cast<void>(ReadHttpsAddress(address));
        return address;
    } catch (const ClientFailure&) {
        RaiseRedirectRefused(attempt.address, location);
    }
}

// Returns the address to ask next; nothing when the answer has been received.
std::optional<std::wstring> FetchOnce(Transport& transport, const HttpsRequest& request,
                                      const std::wstring& address, const HttpsReceiver& receiver) {
    const OpenRequest open = PrepareRequest(transport, ReadHttpsAddress(address));
    const Attempt attempt{transport, address, open};
    SendRequest(attempt, request);
    const HttpsHead head = ReadHead(attempt);
    if (head.status == HTTP_STATUS_PROXY_AUTH_REQ) {
        RaiseProxyWantsLogin(address);
    }
    std::optional<std::wstring> redirect = ReadRedirect(attempt, head);
    if (!redirect) {
        Receive(attempt, head, receiver);
    }
    return redirect;
}

}  // namespace

void TransportCloser::operator()(Transport* transport) const noexcept {
    transport->session.reset();
    if (!CloseOne(transport->closings)) {
        WaitForSingleObject(transport->closings.allClosed.get(), INFINITE);
    }
    std::unique_ptr<Transport>(transport).reset();
}

UniqueTransport OpenTransport(const TransportLimits& limits, const Cancellation& cancellation) {
    UniqueHandle allClosed = CreateStateEvent(TRUE);
    UniqueInternet session = OpenSession(limits);
    return UniqueTransport(new Transport{
        limits, cancellation, std::move(session), {.allClosed = std::move(allClosed)}});
}

void Fetch(Transport& transport, const HttpsRequest& request, const HttpsReceiver& receiver) {
    RaiseIfCancelled(transport.cancellation);
    std::wstring address = request.address;
    for (int redirects = 0;; ++redirects) {
        std::optional<std::wstring> next = FetchOnce(transport, request, address, receiver);
        if (!next) {
            return;
        }
        if (redirects == kMostRedirects) {
            RaiseRedirectRefused(address, *next);
        }
        address = std::move(*next);
    }
}

}  // namespace updater
