#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fixtures/temporary_directory.h"

namespace updater {

// The ports of the servers on this machine; see servers/serve.py. Their certificates are for the
// host "localhost".

/// A real server, nginx.
inline constexpr char kNginx[] = "nginx";
/// One that misbehaves as the query of an address tells it; see servers/unruly.py.
inline constexpr char kUnruly[] = "unruly";
/// The same with a certificate that has expired, with one by an authority that this machine does
/// not know, and with one for another host.
inline constexpr char kExpired[] = "expired";
inline constexpr char kForeign[] = "foreign";
inline constexpr char kMisnamed[] = "misnamed";

struct ServerConnection;
struct ServerConnectionCloser {
    void operator()(ServerConnection* connection) const noexcept;
};

/// Servers over HTTPS on free ports of this machine, all with the same files, whose authority this
/// machine trusts meanwhile. They end with it, and with the program, however that ends. Raises
/// `std::runtime_error` when they do not start.
struct HttpsServers {
    HttpsServers();
    ~HttpsServers();
    HttpsServers(const HttpsServers&) = delete;
    HttpsServers& operator=(const HttpsServers&) = delete;

    /// Puts a file on the servers, or another one in its place.
    void Publish(const std::wstring& name, std::string_view content) const;

    /// Returns the address of a file, whose name may have a query behind it. A name with other than
    /// plain characters stands as an address has it.
    [[nodiscard]] std::wstring Address(const char* server, const std::wstring& name) const;

    /// Returns the lines of a server's log, kNginx's or kUnruly's (the others' stand there, too),
    /// as servers/serve.py and servers/unruly.py tell.
    [[nodiscard]] std::vector<std::string> Requests(const char* server) const;

    /// Ends the answers that drip, now and later. Wine ends a cancelled request, and the program
    /// with it, only when its server does.
    void EndDripping() const;

    /// Ends the servers; connections break. Wine lets go of a request only when its server does,
    /// and the end of a transport waits for that.
    void Stop();

    TemporaryDirectory directory;
    /// What is served.
    std::filesystem::path files = directory.path / L"files";
    std::map<std::string, std::uint16_t, std::less<>> ports;
    std::unique_ptr<ServerConnection, ServerConnectionCloser> connection;
};

}  // namespace updater
