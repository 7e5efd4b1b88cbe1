// Requests to real servers, those that misbehave included.

#include "client/transport.h"

#include <gtest/gtest.h>

#include <string>

#include "client/client_failures.h"
#include "client/https_server.h"
#include "fixtures/file_content.h"

namespace updater {
namespace {

struct TransportTest : testing::Test {
    static void SetUpTestSuite() { servers = std::make_unique<HttpsServers>(); }
    static void TearDownTestSuite() { servers.reset(); }

    // Returns the body, and keeps the head.
    std::string FetchText(const std::wstring& address) {
        std::string text;
        Fetch(*transport, {.address = address, .headers = headers},
              {.takeHead =
                   [&](const HttpsHead& received) {
                       head = received;
                       return true;
                   },
               .takeBytes =
                   [&](std::span<const char> bytes) { text.append(bytes.begin(), bytes.end()); }});
        return text;
    }

    static std::unique_ptr<HttpsServers> servers;
    Cancellation cancellation = CreateCancellation();
    UniqueTransport transport = OpenTransport({}, cancellation);
    std::vector<std::wstring> headers;
    HttpsHead head;
};

std::unique_ptr<HttpsServers> TransportTest::servers;

TEST_F(TransportTest, FetchesAFile) {
    const std::string content = PatternOfSize(1'000'000);
    servers->Publish(L"large", content);
    EXPECT_TRUE(FetchText(servers->Address(kNginx, L"large")) == content);
    EXPECT_EQ(head.status, 200U);
    EXPECT_EQ(head.length, 1'000'000U);
    EXPECT_TRUE(head.entityTag.starts_with(L"\"")) << testing::PrintToString(head.entityTag);
    EXPECT_TRUE(head.lastModified.ends_with(L"GMT"));
    EXPECT_EQ(head.contentRange, L"");
}

TEST_F(TransportTest, RefusesAForeignCertificate) {
    EXPECT_THAT(
        [&] { FetchText(servers->Address(kForeign, L"a")); },
        RaisesResult(APP_UPDATE_CERTIFICATE_REFUSED, "The server's certificate is refused", 12157));
}
TEST_F(TransportTest, RefusesAnExpiredCertificate) {
    EXPECT_THAT(
        [&] { FetchText(servers->Address(kExpired, L"a")); },
        RaisesResult(APP_UPDATE_CERTIFICATE_REFUSED, "The server's certificate is refused", 12157));
}
TEST_F(TransportTest, RefusesAMisnamedCertificate) {
    EXPECT_THAT(
        [&] { FetchText(servers->Address(kMisnamed, L"a")); },
        RaisesResult(APP_UPDATE_CERTIFICATE_REFUSED, "The server's certificate is refused", 12157));
}

}  // namespace
}  // namespace updater
