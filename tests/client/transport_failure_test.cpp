// Requests on a machine in trouble: WinHTTP's functions are replaced at link time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "client/client_failures.h"
#include "client/https_server.h"
#include "client/transport.h"
#include "client/transport_failure.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/open_handles.h"
#include "fixtures/refusals.h"

namespace updater {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Pair;

TEST(RaiseTransportFailure, TellsWhatAnErrorIs) {
    const std::map<DWORD, AppUpdateResult> results = {
        {12037, APP_UPDATE_CERTIFICATE_REFUSED}, {12038, APP_UPDATE_CERTIFICATE_REFUSED},
        {12044, APP_UPDATE_CERTIFICATE_REFUSED}, {12045, APP_UPDATE_CERTIFICATE_REFUSED},
        {12057, APP_UPDATE_CERTIFICATE_REFUSED}, {12157, APP_UPDATE_CERTIFICATE_REFUSED},
        {12169, APP_UPDATE_CERTIFICATE_REFUSED}, {12170, APP_UPDATE_CERTIFICATE_REFUSED},
        {12175, APP_UPDATE_CERTIFICATE_REFUSED}, {12179, APP_UPDATE_CERTIFICATE_REFUSED},
        {12188, APP_UPDATE_CERTIFICATE_REFUSED}, {12002, APP_UPDATE_NO_NETWORK},
        {12007, APP_UPDATE_NO_NETWORK},          {12029, APP_UPDATE_NO_NETWORK},
        {12030, APP_UPDATE_NO_NETWORK},          {12152, APP_UPDATE_NO_NETWORK},
        {12178, APP_UPDATE_NO_NETWORK},          {10054, APP_UPDATE_NO_NETWORK},
        {12001, APP_UPDATE_SYSTEM_ERROR},        {8, APP_UPDATE_SYSTEM_ERROR},
        {14, APP_UPDATE_SYSTEM_ERROR},           {6, APP_UPDATE_SYSTEM_ERROR},
    };
    for (const auto& [error, result] : results) {
        EXPECT_THAT(
            [error = error] { RaiseTransportFailure(L"https://host.test/a", error); },
            RaisesResult(result, "https://host.test/a, error " + std::to_string(error), error));
    }
}

struct TransportFailure : testing::Test {
    static void SetUpTestSuite() { servers = std::make_unique<HttpsServers>(); }
    static void TearDownTestSuite() { servers.reset(); }

    void FetchAFile() {
        Fetch(*transport, {servers->Address(kNginx, L"a"), {}},
              {.takeHead = [](const HttpsHead&) { return true; },
               .takeBytes = [](std::span<const char>) {}});
    }

    // A call that fails ends everything, with its number.
    template <typename Result, typename... Arguments>
    void ExpectFinal(Replacement<Result(Arguments...)>& function,
                     std::type_identity_t<Result> refusal, AppUpdateResult result,
                     const std::function<void()>& operation) {
        ExpectFinalRefusal(
            function, refusal,
            [&](DWORD error) { EXPECT_THAT(operation, RaisesResult(result, "error ", error)); },
            {ERROR_ACCESS_DENIED, ERROR_WINHTTP_CONNECTION_ERROR});
    }

    static std::unique_ptr<HttpsServers> servers;
    Cancellation cancellation = CreateCancellation();
    UniqueTransport transport = OpenTransport({}, cancellation);
    std::function<void()> fetch = [this] { FetchAFile(); };
};

std::unique_ptr<HttpsServers> TransportFailure::servers;

TEST_F(TransportFailure, OpensByTheSystemsProxySettings) {
    std::vector<DWORD> access;
    const ScopedReplacement opening(
        doubles::WinHttpOpen,
        [&](LPCWSTR agent, DWORD type, LPCWSTR proxy, LPCWSTR bypass, DWORD flags) {
            access.push_back(type);
            EXPECT_EQ(proxy, nullptr);
            EXPECT_EQ(bypass, nullptr);
            EXPECT_EQ(flags, DWORD{WINHTTP_FLAG_ASYNC});
            return WinHttpOpen(agent, type, proxy, bypass, flags);
        });
    OpenTransport({}, cancellation);
    EXPECT_THAT(access, ElementsAre(DWORD{WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY}));
}

TEST_F(TransportFailure, SetsWhatKeepsARequestSafe) {
    std::multimap<DWORD, DWORD> options;
    const ScopedReplacement setting(doubles::WinHttpSetOption,
                                    [&](HINTERNET handle, DWORD option, LPVOID value, DWORD bytes) {
                                        options.emplace(option, *static_cast<const DWORD*>(value));
                                        return WinHttpSetOption(handle, option, value, bytes);
                                    });
    transport = OpenTransport({}, cancellation);
    FetchAFile();
    EXPECT_THAT(options, Contains(Pair(WINHTTP_OPTION_REDIRECT_POLICY,
                                       WINHTTP_OPTION_REDIRECT_POLICY_NEVER)));
    EXPECT_THAT(options, Contains(Pair(WINHTTP_OPTION_DISABLE_FEATURE,
                                       WINHTTP_DISABLE_COOKIES | WINHTTP_DISABLE_AUTHENTICATION)));
    EXPECT_THAT(options, Contains(Pair(WINHTTP_OPTION_SECURE_PROTOCOLS,
                                       WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_2 |
                                           WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_3)));
}

TEST_F(TransportFailure, DoesWithoutTheNewestProtocolWhereThereIsNone) {
    std::vector<DWORD> protocols;
    const ScopedReplacement setting(
        doubles::WinHttpSetOption, [&](HINTERNET handle, DWORD option, LPVOID value, DWORD bytes) {
            if (option != WINHTTP_OPTION_SECURE_PROTOCOLS) {
                return WinHttpSetOption(handle, option, value, bytes);
            }
            protocols.push_back(*static_cast<const DWORD*>(value));
            return protocols.size() == 2 ? TRUE : FailWith(ERROR_INVALID_PARAMETER);
        });
    EXPECT_NO_THROW(OpenTransport({}, cancellation));
    EXPECT_EQ(protocols.back(), DWORD{WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_2});
    EXPECT_EQ(protocols.size(), 2U);
}

TEST_F(TransportFailure, OpensNoTransportThatIsNotSafe) {
    const auto open = [this] { OpenTransport({}, cancellation); };
    ExpectFinal(doubles::WinHttpOpen, nullptr, APP_UPDATE_SYSTEM_ERROR, open);
    ExpectFinal(doubles::WinHttpSetTimeouts, FALSE, APP_UPDATE_SYSTEM_ERROR, open);
    for (const DWORD refused : {WINHTTP_OPTION_SECURE_PROTOCOLS, WINHTTP_OPTION_REDIRECT_POLICY}) {
        const ScopedReplacement setting(
            doubles::WinHttpSetOption,
            [&](HINTERNET handle, DWORD option, LPVOID value, DWORD bytes) {
                return option == refused ? FailWith(ERROR_ACCESS_DENIED)
                                         : WinHttpSetOption(handle, option, value, bytes);
            });
        EXPECT_THAT(open, RaisesResult(APP_UPDATE_SYSTEM_ERROR, "Cannot prepare a request, error 5",
                                       ERROR_ACCESS_DENIED));
    }
}

TEST_F(TransportFailure, EndsWithTheFirstCallThatFails) {
    ExpectFinal(doubles::WinHttpConnect, nullptr, APP_UPDATE_SYSTEM_ERROR, fetch);
    ExpectFinal(doubles::WinHttpOpenRequest, nullptr, APP_UPDATE_SYSTEM_ERROR, fetch);
    ExpectFinal(doubles::WinHttpSetOption, FALSE, APP_UPDATE_SYSTEM_ERROR, fetch);
    ExpectFinal(doubles::WinHttpSetStatusCallback, WINHTTP_INVALID_STATUS_CALLBACK,
                APP_UPDATE_SYSTEM_ERROR, fetch);
    ExpectFinal(doubles::WinHttpSendRequest, FALSE, APP_UPDATE_NO_NETWORK, fetch);
    ExpectFinal(doubles::WinHttpReceiveResponse, FALSE, APP_UPDATE_NO_NETWORK, fetch);
    ExpectFinal(doubles::WinHttpQueryHeaders, FALSE, APP_UPDATE_NO_NETWORK, fetch);
    ExpectFinal(doubles::TrySubmitThreadpoolCallback, FALSE, APP_UPDATE_SYSTEM_ERROR, fetch);
    servers->Publish(L"a", "abc");
    EXPECT_NO_THROW(FetchAFile()) << "nothing is left of the failures";
}

TEST_F(TransportFailure, LeavesNoHandleOpen) {
    ExpectNoHandleLeft([this] {
        const ScopedReplacement failing(doubles::WinHttpSendRequest,
                                        [](HINTERNET, LPCWSTR, DWORD, LPVOID, DWORD, DWORD,
                                           DWORD_PTR) { return FailWith(ERROR_ACCESS_DENIED); });
        EXPECT_THAT(fetch, RaisesResult(APP_UPDATE_NO_NETWORK));
        transport = OpenTransport({}, cancellation);
    });
}

}  // namespace
}  // namespace updater
