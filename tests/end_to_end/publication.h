#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "client/feed.h"
#include "client/https_server.h"
#include "fixtures/release_key.h"
#include "fixtures/scoped_variable.h"

namespace updater {

/// A team's releases: a signed feed on nginx, and setup programs on the server that misbehaves when
/// it is told to.
struct Publication {
    [[nodiscard]] std::wstring FeedAddress() const {
        return servers.Address(kNginx, L"update-feed.json");
    }

    HttpsServers servers;
    ReleaseKey key = MakeReleaseKey();
    /// The feed's last issue number.
    std::uint32_t issue = 0;
};

/// Puts a setup program on the servers and offers it in the feed's next issue, to be downloaded
/// from the address with this query behind it.
void PublishRelease(Publication& publication, const std::filesystem::path& setup,
                    const std::string& version, const std::string& query = "");

/// Changes the payload of the published feed behind its signature's back.
void TamperWithFeed(const Publication& publication);

/// Tells an application that is started meanwhile where its updates are.
struct FeedVariables {
    explicit FeedVariables(const Publication& publication);
    ~FeedVariables() = default;
    FeedVariables(const FeedVariables&) = delete;
    FeedVariables& operator=(const FeedVariables&) = delete;

    ScopedVariable address;
    ScopedVariable key;
};

}  // namespace updater
