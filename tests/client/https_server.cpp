#include "client/https_server.h"

// Before <windows.h>, which brings an older one otherwise.
#include <winsock2.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "client/root_store.h"
#include "fixtures/built_path.h"
#include "fixtures/file_content.h"
#include "fixtures/host_script.h"
#include "fixtures/host_system.h"
#include "support/file_system.h"
#include "support/windows_api.h"

namespace updater {

struct ServerConnection {
    WSADATA sockets{};
    SOCKET socket = INVALID_SOCKET;
};

void ServerConnectionCloser::operator()(ServerConnection* connection) const noexcept {
    // The servers have ended when they close their side.
    char ignored = 0;
    shutdown(connection->socket, SD_SEND);
    while (recv(connection->socket, &ignored, 1, 0) > 0) {
    }
    closesocket(connection->socket);
    WSACleanup();
    delete connection;
}

namespace {

// The servers watch this connection: the system closes it with the program, whatever becomes of
// that.
std::unique_ptr<ServerConnection, ServerConnectionCloser> ConnectTo(std::uint16_t port) {
    auto* const made = new ServerConnection;
    WSAStartup(MAKEWORD(2, 2), &made->sockets);
    std::unique_ptr<ServerConnection, ServerConnectionCloser> connection(made);
    made->socket = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(made->socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        throw std::runtime_error("The servers are not there");
    }
    return connection;
}

// The authority of all servers of this program: Wine looks up once in a program whom the machine
// trusts.
struct Authority {
    Authority() = default;
    ~Authority() {
        if (!files.empty()) {
            RemoveTrustedRoot(files.at(L"trusted.der"));
        }
    }
    Authority(const Authority&) = delete;
    Authority& operator=(const Authority&) = delete;

    std::map<std::wstring, std::string> files;
};

Authority& SharedAuthority() {
    static Authority authority;
    return authority;
}

void TrustAuthority(const std::filesystem::path& directory) {
    std::map<std::wstring, std::string>& files = SharedAuthority().files;
    if (files.empty()) {
        for (const wchar_t* name : {L"trusted.key", L"trusted.pem", L"trusted.der"}) {
            files[name] = ReadFileContent(directory / name);
        }
        AddTrustedRoot(files.at(L"trusted.der"));
    }
}

std::map<std::string, std::uint16_t, std::less<>> StartServers(
    const std::filesystem::path& directory) {
    for (const auto& [name, content] : SharedAuthority().files) {
        WriteFileContent(directory / name, content);
    }
    const std::wstring script = BuiltPath(CORVELLAN_SERVERS L"/serve.py").native();
    // Python looks for its library where its name leads: by the name alone, to the first one in
    // PATH.
    if (!HasHostSystem() ||
        !StartHostProgram(L"Z:\\usr\\bin\\python3",
                          L"/usr/bin/python3 -I -S -B \"" + HostFileName(script) + L"\"",
                          directory)) {
        throw std::runtime_error("There is no host to run servers on");
    }
    AwaitHostFile(directory / L"servers.txt", "The servers do not start");
    std::istringstream lines(ReadFileContent(directory / L"servers.txt"));
    std::map<std::string, std::uint16_t, std::less<>> ports;
    std::string name;
    std::uint16_t port = 0;
    while (lines >> name >> port) {
        ports[name] = port;
    }
    return ports;
}

}  // namespace

HttpsServers::HttpsServers() : ports(StartServers(directory.path)) {
    connection = ConnectTo(ports.at("control"));
    TrustAuthority(directory.path);
}

void HttpsServers::Publish(const std::wstring& name, std::string_view content) const {
    WriteFileContent(files / name, content);
}

std::wstring HttpsServers::Address(const char* server, const std::wstring& name) const {
    return L"https://localhost:" + std::to_wstring(ports.find(server)->second) + L"/" + name;
}

std::vector<std::string> HttpsServers::Requests(const char* server) const {
    const std::filesystem::path log =
        directory.path / (server == std::string_view(kNginx) ? L"nginx.log" : L"unruly.log");
    std::vector<std::string> lines;
    if (PathExists(log)) {
        std::istringstream content(ReadFileContent(log));
        for (std::string line; std::getline(content, line);) {
            lines.push_back(line);
        }
    }
    return lines;
}

void HttpsServers::EndDripping() const {
    WriteFileContent(directory.path / L"let-go", "");
}

HttpsServers::~HttpsServers() {
    Stop();
}

void HttpsServers::Stop() {
    connection.reset();
}

}  // namespace updater
