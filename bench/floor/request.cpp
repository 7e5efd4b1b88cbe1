#include "floor/request.h"

#include <stdexcept>

namespace bench {

namespace {

void Require(bool holds) {
    if (!holds) {
        throw std::runtime_error("The request failed");
    }
}

}  // namespace

Request SendRequest(const std::wstring& host, std::uint16_t port, const std::wstring& target,
                    const std::wstring& header) {
    Request request;
    request.session.reset(
        WinHttpOpen(nullptr, WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY, nullptr, nullptr, 0));
    request.connection.reset(WinHttpConnect(request.session.get(), host.c_str(), port, 0));
    request.handle.reset(WinHttpOpenRequest(request.connection.get(), L"GET", target.c_str(),
                                            nullptr, nullptr, nullptr, WINHTTP_FLAG_SECURE));
    Require(WinHttpSendRequest(request.handle.get(), header.empty() ? nullptr : header.c_str(),
                               static_cast<DWORD>(header.size()), nullptr, 0, 0, 0) != 0 &&
            WinHttpReceiveResponse(request.handle.get(), nullptr) != 0);
    return request;
}

std::uint32_t StatusOf(const Request& request) {
    DWORD status = 0;
    DWORD size = sizeof(status);
    Require(WinHttpQueryHeaders(request.handle.get(),
                                WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER, nullptr,
                                &status, &size, nullptr) != 0);
    return status;
}

std::wstring EntityTagOf(const Request& request) {
    std::wstring tag(256, L'\0');
    auto bytes = static_cast<DWORD>(tag.size() * sizeof(wchar_t));
    Require(WinHttpQueryHeaders(request.handle.get(), WINHTTP_QUERY_ETAG, nullptr, tag.data(),
                                &bytes, nullptr) != 0);
    tag.resize(bytes / sizeof(wchar_t));
    return tag;
}

}  // namespace bench
