// Requests to real servers, those that misbehave included.

#include "client/transport.h"

// Before <windows.h>, which brings an older one otherwise.
#include <winsock2.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "client/client_failures.h"
#include "client/https_server.h"
#include "fixtures/file_content.h"
#include "support/windows_api.h"

namespace updater {
namespace {

using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

constexpr std::uint32_t kTimeout = 12002;

// Takes the whole answer.
struct ReceivedAnswer {
    HttpsHead head;
    std::string body;
    std::function<void()> onBytes = [] {};
};

// cppcheck-suppress constParameter  // not for the function that it is passed on to
void FetchInto(Transport& transport, const HttpsRequest& request, ReceivedAnswer& answer) {
    Fetch(transport, request,
          {.takeHead =
               [&](const HttpsHead& head) {
                   answer.head = head;
                   return true;
               },
           .takeBytes =
               [&](std::span<const char> bytes) {
                   answer.body.append(bytes.begin(), bytes.end());
                   answer.onBytes();
               }});
}

struct TransportTest : testing::Test {
    static void SetUpTestSuite() { servers = std::make_unique<HttpsServers>(); }
    static void TearDownTestSuite() { servers.reset(); }

    [[nodiscard]] ReceivedAnswer Get(const std::wstring& address,
                                     std::vector<std::wstring> headers = {}) const {
        ReceivedAnswer answer;
        FetchInto(*transport, {address, std::move(headers)}, answer);
        return answer;
    }

    [[nodiscard]] ReceivedAnswer GetUnruly(const std::wstring& name) const {
        return Get(servers->Address(kUnruly, name));
    }

    static std::unique_ptr<HttpsServers> servers;
    Cancellation cancellation = CreateCancellation();
    UniqueTransport transport = OpenTransport({}, cancellation);
};

std::unique_ptr<HttpsServers> TransportTest::servers;

TEST_F(TransportTest, FetchesAFileWhole) {
    for (const std::size_t size : {0UL, 1UL, 8192UL, 8193UL, 1'000'000UL}) {
        const std::string content = PatternOfSize(size);
        servers->Publish(L"file", content);
        const ReceivedAnswer answer = Get(servers->Address(kNginx, L"file"));
        EXPECT_TRUE(answer.body == content);
        EXPECT_EQ(answer.head.status, 200U);
        EXPECT_EQ(answer.head.length, size);
        EXPECT_TRUE(answer.head.entityTag.starts_with(L"\""));
        EXPECT_TRUE(answer.head.lastModified.ends_with(L"GMT"));
        EXPECT_EQ(answer.head.contentRange, L"");
    }
}

TEST_F(TransportTest, SendsHeadersAsTheyStand) {
    servers->Publish(L"part", "0123456789");
    const std::wstring address = servers->Address(kNginx, L"part");
    const ReceivedAnswer part = Get(address, {L"Range: bytes=4-"});
    EXPECT_EQ(part.head.status, 206U);
    EXPECT_EQ(part.head.contentRange, L"bytes 4-9/10");
    EXPECT_EQ(part.body, "456789");
    const ReceivedAnswer nothing = Get(address, {L"If-None-Match: " + part.head.entityTag});
    EXPECT_EQ(nothing.head.status, 304U);
    EXPECT_EQ(nothing.body, "");
}

TEST_F(TransportTest, SendsATargetAsItStands) {
    EXPECT_EQ(Get(servers->Address(kNginx, L"a%20b%2Fc?d=%2F/../%C3%BC")).head.status, 404U);
    EXPECT_THAT(servers->Requests(kNginx),
                Contains(HasSubstr("GET /a%20b%2Fc?d=%2F/../%C3%BC 404")));
}

TEST_F(TransportTest, LeavesEveryStatusToTheReceiver) {
    for (const std::uint32_t status : {404U, 416U, 429U, 500U, 302U}) {
        const ReceivedAnswer answer = GetUnruly(L"a?status=" + std::to_wstring(status));
        EXPECT_EQ(answer.head.status, status);
        EXPECT_EQ(answer.body, "This is not the file.\n");
    }
}

// Of a proxy that does not let the request through, Windows gives the answer as the server's own;
// Wine goes on as if it had. So it is the server that says it here.
TEST_F(TransportTest, TellsWhenAProxyWantsALogin) {
    EXPECT_THAT([this] { static_cast<void>(GetUnruly(L"a?status=407")); },
                RaisesResult(APP_UPDATE_SERVER_ERROR, "The proxy wants a login"));
}

TEST_F(TransportTest, GivesNoBodyThatIsNotWanted) {
    servers->Publish(L"a", "abc");
    int heads = 0;
    Fetch(*transport, {servers->Address(kNginx, L"a"), {}},
          {.takeHead =
               [&](const HttpsHead&) {
                   ++heads;
                   return false;
               },
           .takeBytes = [](std::span<const char>) { FAIL(); }});
    EXPECT_EQ(heads, 1);
}

TEST_F(TransportTest, LetsThroughWhatTheReceiverRaises) {
    servers->Publish(L"large", PatternOfSize(1'000'000));
    const HttpsRequest request{servers->Address(kNginx, L"large"), {}};
    const auto fail = [] { throw std::runtime_error("enough"); };
    EXPECT_THAT(
        [&] {
            Fetch(*transport, request,
                  {.takeHead =
                       [&](const HttpsHead&) {
                           fail();
                           return true;
                       },
                   .takeBytes = [](std::span<const char>) {}});
        },
        testing::ThrowsMessage<std::runtime_error>("enough"));
    ReceivedAnswer answer;
    answer.onBytes = fail;
    EXPECT_THAT([&] { FetchInto(*transport, request, answer); },
                testing::ThrowsMessage<std::runtime_error>("enough"));
}

TEST_F(TransportTest, FollowsFiveRedirects) {
    servers->Publish(L"a", "abc");
    servers->Publish(L"below/b", "def");
    for (const wchar_t* status : {L"301", L"302", L"303", L"307", L"308"}) {
        EXPECT_EQ(GetUnruly(std::wstring(L"b?redirect=a&by=") + status).body, "abc");
    }
    EXPECT_EQ(GetUnruly(L"a?chain=5").body, "abc");
    EXPECT_EQ(GetUnruly(L"a?redirect=below/../below/b").body, "def");
    EXPECT_EQ(GetUnruly(L"a?redirect=" + servers->Address(kNginx, L"below/b")).body, "def");
}

TEST_F(TransportTest, RefusesRedirectsToWhatIsNotHttpsAndOnAndOn) {
    servers->Publish(L"a", "abc");
    for (const wchar_t* query :
         {L"chain=6", L"chain=100", L"redirect=http://localhost/a", L"redirect=ftp://localhost/a",
          L"redirect=file:///a", L"redirect=//a:b@localhost/", L"redirect=https://",
          L"redirect=data:,abc"}) {
        SCOPED_TRACE(testing::PrintToString(query));
        EXPECT_THAT([&] { static_cast<void>(GetUnruly(std::wstring(L"a?") + query)); },
                    RaisesResult(APP_UPDATE_REDIRECT_REFUSED, "The server leads to"));
    }
}

TEST_F(TransportTest, RefusesAnAddressThatIsNotHttps) {
    for (const wchar_t* address : {L"http://localhost/", L"a", L"https://a:b@localhost/"}) {
        EXPECT_THAT([&] { static_cast<void>(Get(address)); },
                    RaisesResult(APP_UPDATE_INVALID_ARGUMENT));
    }
}

// Wine has the same number for all of them; Windows tells them apart.
TEST_F(TransportTest, RefusesCertificatesBeforeAnythingIsSent) {
    servers->Publish(L"secret", "abc");
    for (const char* server : {kForeign, kExpired, kMisnamed}) {
        SCOPED_TRACE(server);
        EXPECT_THAT([&] { static_cast<void>(Get(servers->Address(server, L"secret"))); },
                    RaisesResult(APP_UPDATE_CERTIFICATE_REFUSED,
                                 "certificate is refused: https://localhost:"));
    }
    EXPECT_THAT(servers->Requests(kUnruly), Each(Not(HasSubstr("/secret"))));
}

TEST_F(TransportTest, TakesAnAnswerThatEndsEarlyForABrokenConnection) {
    servers->Publish(L"large", PatternOfSize(100'000));
    for (const wchar_t* name : {L"large?cut=0", L"large?cut=1", L"large?cut=50000",
                                L"large?cut=99999", L"large?more=1&cut=100000"}) {
        SCOPED_TRACE(testing::PrintToString(name));
        EXPECT_THAT([&] { static_cast<void>(GetUnruly(name)); },
                    RaisesResult(APP_UPDATE_NO_NETWORK, "it broke: https://localhost:"));
    }
    EXPECT_EQ(GetUnruly(L"large?unannounced=0").body.size(), 100'000U);
}

// A socket of this program that takes no connections, or takes them and says nothing.
struct SilentServer {
    explicit SilentServer(bool listens) {
        WSADATA data{};
        WSAStartup(MAKEWORD(2, 2), &data);
        listener = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            throw std::runtime_error("There is no free port");
        }
        int length = sizeof(address);
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
        port = ntohs(address.sin_port);
        if (listens) {
            listen(listener, SOMAXCONN);
        }
    }
    ~SilentServer() {
        closesocket(listener);
        WSACleanup();
    }
    SilentServer(const SilentServer&) = delete;
    SilentServer& operator=(const SilentServer&) = delete;

    [[nodiscard]] std::wstring Address() const {
        return L"https://localhost:" + std::to_wstring(port) + L"/a";
    }

    SOCKET listener = INVALID_SOCKET;
    std::uint16_t port = 0;
};

TEST_F(TransportTest, SaysThatThereIsNoNetworkWhereNobodyAnswers) {
    const SilentServer server(false);
    EXPECT_THAT([&] { static_cast<void>(Get(server.Address())); },
                RaisesResult(APP_UPDATE_NO_NETWORK, "No connection"));
    EXPECT_THAT([&] { static_cast<void>(Get(L"https://name.invalid/a")); },
                RaisesResult(APP_UPDATE_NO_NETWORK, "https://name.invalid/a, error "));
}

TEST_F(TransportTest, GivesUpAConnectionThatIsNotMade) {
    const SilentServer server(true);
    transport = OpenTransport({.connect = 300, .silence = 1'000'000}, cancellation);
    EXPECT_THAT(
        [&] { static_cast<void>(Get(server.Address())); },
        RaisesResult(APP_UPDATE_NO_NETWORK, "The server does not answer in time: ", kTimeout));
}

TEST_F(TransportTest, GivesUpAServerThatFallsSilent) {
    servers->Publish(L"large", PatternOfSize(100'000));
    transport = OpenTransport({.connect = 1'000'000, .silence = 300}, cancellation);
    EXPECT_THAT(
        [&] { static_cast<void>(GetUnruly(L"large?stall=head")); },
        RaisesResult(APP_UPDATE_NO_NETWORK, "The server does not answer in time: ", kTimeout));
    EXPECT_THAT([&] { static_cast<void>(GetUnruly(L"large?stall=50000")); },
                RaisesResult(APP_UPDATE_NO_NETWORK));
}

TEST_F(TransportTest, GivesUpAHeadWithoutAnEnd) {
    HttpsServers endless;
    transport = OpenTransport({.connect = 1'000'000, .silence = 300}, cancellation);
    EXPECT_THAT(
        [&] { static_cast<void>(Get(endless.Address(kUnruly, L"a?header=endless"))); },
        RaisesResult(APP_UPDATE_NO_NETWORK, "The server does not answer in time: ", kTimeout));
    endless.Stop();
}

// The whole takes longer than the limit for silence, each byte a fraction of it.
TEST_F(TransportTest, GoesOnWithAServerThatIsSlow) {
    const std::string content = PatternOfSize(1060);
    servers->Publish(L"slow", content);
    transport = OpenTransport({.silence = 4000}, cancellation);
    EXPECT_EQ(GetUnruly(L"slow?drip=1000").body, content);
}

TEST_F(TransportTest, AsksNobodyWhenItIsCancelledBefore) {
    RequestCancellation(cancellation);
    EXPECT_THAT([&] { static_cast<void>(GetUnruly(L"cancelled")); },
                RaisesResult(APP_UPDATE_CANCELLED));
    EXPECT_THAT(servers->Requests(kUnruly), Each(Not(HasSubstr("/cancelled"))));
    EXPECT_EQ(GetUnruly(L"cancelled").head.status, 404U) << "one request to cancel ends one call";
}

TEST_F(TransportTest, EndsWhileItConnectsWhenItIsCancelled) {
    const SilentServer server(true);
    const UniqueHandle ended = OwnHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    transport = OpenTransport({.connect = 1'000'000, .silence = 1'000'000}, cancellation);
    std::thread cancelling([&] {
        const SOCKET connection = accept(server.listener, nullptr, nullptr);
        RequestCancellation(cancellation);
        WaitForSingleObject(ended.get(), INFINITE);
        closesocket(connection);
    });
    EXPECT_THAT([&] { static_cast<void>(Get(server.Address())); },
                RaisesResult(APP_UPDATE_CANCELLED));
    SetEvent(ended.get());
    cancelling.join();
}

// Once with the request sent and nothing answered, once with a part of the answer there.
TEST_F(TransportTest, EndsWhileItWaitsForAnAnswerWhenItIsCancelled) {
    HttpsServers silent;
    silent.Publish(L"large", PatternOfSize(100'000));
    transport = OpenTransport({.connect = 1'000'000, .silence = 1'000'000}, cancellation);
    for (const auto& [name, line] : {std::pair(L"large?stall=head", "stall=head"),
                                     std::pair(L"large?stall=50000", "stall=50000")}) {
        std::thread cancelling([&] {
            while (!testing::Value(silent.Requests(kUnruly), Contains(HasSubstr(line)))) {
                Sleep(5);
            }
            RequestCancellation(cancellation);
        });
        EXPECT_THAT([&] { static_cast<void>(Get(silent.Address(kUnruly, name))); },
                    RaisesResult(APP_UPDATE_CANCELLED));
        cancelling.join();
    }
    silent.Stop();
}

TEST_F(TransportTest, EndsAmongTheBytesWhenItIsCancelled) {
    servers->Publish(L"large", PatternOfSize(10'000'000));
    ReceivedAnswer answer;
    answer.onBytes = [&] { RequestCancellation(cancellation); };
    EXPECT_THAT([&] { FetchInto(*transport, {servers->Address(kNginx, L"large"), {}}, answer); },
                RaisesResult(APP_UPDATE_CANCELLED));
    EXPECT_LT(answer.body.size(), 10'000'000U);
}

}  // namespace
}  // namespace updater
