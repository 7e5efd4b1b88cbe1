#include "client/transport_failure.h"

#include <string_view>

#include "client/failure.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

// After the Windows types that it needs.
#include <winhttp.h>

namespace updater {

namespace {

[[noreturn]] void Raise(AppUpdateResult result, std::string_view sentence,
                        const std::wstring& address, std::uint32_t error) {
    throw ClientFailure(result,
                        std::string(sentence)
                            .append(": ")
                            .append(WideToUtf8(address))
                            .append(", error ")
                            .append(std::to_string(error)),
                        error);
}

bool IsCertificateError(std::uint32_t error) {
    switch (error) {
        case ERROR_WINHTTP_SECURE_CERT_DATE_INVALID:
        case ERROR_WINHTTP_SECURE_CERT_CN_INVALID:
        case ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED:
        case ERROR_WINHTTP_SECURE_INVALID_CA:
        case ERROR_WINHTTP_SECURE_CERT_REV_FAILED:
        case ERROR_WINHTTP_SECURE_CHANNEL_ERROR:
        case ERROR_WINHTTP_SECURE_INVALID_CERT:
        case ERROR_WINHTTP_SECURE_CERT_REVOKED:
        case ERROR_WINHTTP_SECURE_FAILURE:
        case ERROR_WINHTTP_SECURE_CERT_WRONG_USAGE:
        case ERROR_WINHTTP_CLIENT_CERT_NO_PRIVATE_KEY:
        case ERROR_WINHTTP_CLIENT_CERT_NO_ACCESS_PRIVATE_KEY:
        case ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED_PROXY:
        case ERROR_WINHTTP_SECURE_FAILURE_PROXY:
            return true;
        default:
            return false;
    }
}

bool IsMachineError(std::uint32_t error) {
    switch (error) {
        case ERROR_NOT_ENOUGH_MEMORY:
        case ERROR_OUTOFMEMORY:
        case ERROR_NO_SYSTEM_RESOURCES:
        case ERROR_INVALID_HANDLE:
        case ERROR_INVALID_PARAMETER:
        case ERROR_WINHTTP_OUT_OF_HANDLES:
        case ERROR_WINHTTP_INTERNAL_ERROR:
        case ERROR_WINHTTP_INCORRECT_HANDLE_TYPE:
        case ERROR_WINHTTP_INCORRECT_HANDLE_STATE:
            return true;
        default:
            return false;
    }
}

}  // namespace

void RaiseTransportSystemError(std::uint32_t error) {
    throw ClientFailure(APP_UPDATE_SYSTEM_ERROR,
                        "Cannot prepare a request, error " + std::to_string(error), error);
}

void RaiseTransportFailure(const std::wstring& address, std::uint32_t error) {
    if (IsCertificateError(error)) {
        Raise(APP_UPDATE_CERTIFICATE_REFUSED, "The server's certificate is refused", address,
              error);
    }
    if (IsMachineError(error)) {
        Raise(APP_UPDATE_SYSTEM_ERROR, "Cannot carry out a request", address, error);
    }
    if (error == ERROR_WINHTTP_TIMEOUT) {
        Raise(APP_UPDATE_NO_NETWORK, "The server does not answer in time", address, error);
    }
    Raise(APP_UPDATE_NO_NETWORK, "No connection to the server, or it broke", address, error);
}

void RaiseBrokenConnection(const std::wstring& address) {
    RaiseTransportFailure(address, ERROR_WINHTTP_CONNECTION_ERROR);
}

void RaiseProxyWantsLogin(const std::wstring& address) {
    throw ClientFailure(APP_UPDATE_SERVER_ERROR,
                        "The proxy wants a login before it asks the server: " +
                            WideToUtf8(address) + ", status 407");
}

void RaiseRedirectRefused(const std::wstring& address, const std::wstring& location) {
    throw ClientFailure(APP_UPDATE_REDIRECT_REFUSED,
                        "The server leads to what is not HTTPS, or on and on: " +
                            WideToUtf8(address) + ", to " + WideToUtf8(location));
}

}  // namespace updater
