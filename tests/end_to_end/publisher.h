#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "client/https_server.h"
#include "fixtures/scoped_variable.h"
#include "fixtures/temporary_directory.h"

namespace updater {

/// A team that publishes releases as its manual says: the release tool writes what is to be signed,
/// openssl signs it, the tool makes the feed. The feed lies on nginx, the setup programs on the
/// server that misbehaves when it is told to.
struct Publisher {
    /// Makes the team's pair of keys. Raises `std::runtime_error` where there is no openssl.
    Publisher();

    [[nodiscard]] std::wstring FeedAddress() const {
        return servers.Address(kNginx, L"update-feed.json");
    }

    /// The public key as an application holds it: what stands between the first and the last line
    /// of its file, in one line.
    [[nodiscard]] std::string PublicKeyText() const;

    HttpsServers servers;
    TemporaryDirectory workspace;
    /// Where the keys and the files of the release lie, and where the commands run.
    std::filesystem::path desk = workspace.path / L"desk";
    /// The feed's last issue number.
    std::uint32_t issue = 0;
    /// Gets each command of a publication, UTF-8, before it runs.
    std::function<void(const std::string& command)> onCommand;
};

/// Puts a setup program on the servers and offers it in the feed's next issue, to be downloaded
/// from the address with this query behind it. Both are named as the build does, see `SetupProgram`
/// and `ProgramDirectory`. Raises `std::runtime_error` with what the tool says when it refuses.
void PublishRelease(Publisher& publisher, const std::wstring& setup, const std::wstring& program,
                    const std::wstring& query = L"");

/// Changes the payload of the published feed behind its signature's back.
void TamperWithFeed(const Publisher& publisher);

/// Tells an application that is started meanwhile where its updates are.
struct FeedVariables {
    explicit FeedVariables(const Publisher& publisher);
    ~FeedVariables() = default;
    FeedVariables(const FeedVariables&) = delete;
    FeedVariables& operator=(const FeedVariables&) = delete;

    ScopedVariable address;
    ScopedVariable key;
};

}  // namespace updater
