#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "client/cancellation.h"
#include "client/download.h"
#include "client/https_server.h"
#include "client/text_digest.h"
#include "client/transport.h"
#include "fixtures/file_content.h"
#include "fixtures/temporary_directory.h"

namespace updater {

/// A setup program on the servers, which the tests of a suite share, and what downloads it.
struct DownloadFixture : testing::Test {
    static void SetUpTestSuite() { servers = std::make_unique<HttpsServers>(); }
    static void TearDownTestSuite() { servers.reset(); }

    DownloadFixture(const char* server, std::size_t size) : content(PatternOfSize(size)) {
        servers->Publish(L"setup.exe", content);
        OrderFrom(server, L"setup.exe");
        order.size = size;
        order.sha256 = Sha256Text(DigestOfText(content));
        order.directory = directory.path / L"downloads";
        order.firstPause = 1;
        ForgetRequests();
    }

    void OrderFrom(const char* server, const std::wstring& name) {
        order.address = servers->Address(server, name);
    }

    void ForgetRequests() { requestsBefore = servers->Requests(kUnruly).size(); }

    /// The lines of the unruly server's log since then.
    [[nodiscard]] std::vector<std::string> Requests() const {
        const std::vector<std::string> lines = servers->Requests(kUnruly);
        return {lines.begin() + static_cast<std::ptrdiff_t>(requestsBefore), lines.end()};
    }

    static inline std::unique_ptr<HttpsServers> servers;
    std::string content;
    TemporaryDirectory directory;
    DownloadOrder order;
    Cancellation cancellation = CreateCancellation();
    UniqueTransport transport = OpenTransport({}, cancellation);
    std::size_t requestsBefore = 0;
};

}  // namespace updater
