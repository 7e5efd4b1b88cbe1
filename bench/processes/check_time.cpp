// check-time TIMES DIRECTORY
//
// Prints so many lines, each with two numbers: how many seconds it takes the application's half of
// an update to open a session, to find that nothing is new, and to close it; and how many a bare
// request takes that gets the same answer from the same server, "304 Not Modified". The session's
// data is kept in the directory.

#include <algorithm>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>

#include "client/corvellan_update.h"
#include "client/feed.h"
#include "client/feed_judgement.h"
#include "client/https_server.h"
#include "client/session/signing_key.h"
#include "floor/request.h"
#include "program_main.h"
#include "stopwatch.h"

namespace bench {

namespace {

constexpr char kVersion[] = "2.0.0.0";
constexpr wchar_t kRunningVersion[] = L"2.0.0.0";
constexpr wchar_t kFeedFile[] = L"update-feed.json";
constexpr std::uint32_t kNotModified = 304;

struct SessionCloser {
    void operator()(AppUpdateSession* session) const noexcept { AppUpdateClose(session); }
};

void PublishFeed(const updater::HttpsServers& servers, const updater::SigningKey& key) {
    updater::Feed feed;
    feed.version = updater::ReadVersionNumber(kVersion).value();
    feed.size = 1;
    feed.sha256 = std::string(64, '0');
    feed.address = "setup.exe";
    feed.issue = 1;
    feed.published = updater::CurrentTime();
    feed.expires = feed.published + 86400;
    feed.channel = "stable";
    servers.Publish(kFeedFile, key.Envelope(updater::WriteFeed(feed)));
}

double CheckAsTheProduct(const AppUpdateSettings& settings) {
    AppUpdateReport report{};
    report.size = sizeof(report);
    AppUpdateOffer offer{};
    offer.size = sizeof(offer);
    const std::int64_t begin = CounterNow();
    AppUpdateSession* opened = nullptr;
    AppUpdateOpen(&settings, &opened, &report);
    std::unique_ptr<AppUpdateSession, SessionCloser> session(opened);
    if (!session || AppUpdateCheck(session.get(), &offer, &report) != APP_UPDATE_NOTHING_NEW) {
        throw std::runtime_error("The check failed");
    }
    session.reset();
    return SecondsSince(begin);
}

double AskBare(const updater::HttpsServers& servers, const std::wstring& header) {
    const std::int64_t begin = CounterNow();
    Request request = SendRequest(L"localhost", servers.ports.find(updater::kNginx)->second,
                                  std::wstring(L"/") + kFeedFile, header);
    if (!header.empty() && StatusOf(request) != kNotModified) {
        throw std::runtime_error("The server's answer is another one");
    }
    request = {};
    return SecondsSince(begin);
}

std::wstring EntityTag(const updater::HttpsServers& servers) {
    return EntityTagOf(SendRequest(L"localhost", servers.ports.find(updater::kNginx)->second,
                                   std::wstring(L"/") + kFeedFile, L""));
}

std::ptrdiff_t CountUnchanged(const updater::HttpsServers& servers) {
    return std::ranges::count_if(servers.Requests(updater::kNginx), [](const std::string& line) {
        return line.find(" 304 ") != std::string::npos;
    });
}

void Run(std::span<wchar_t*> arguments) {
    const updater::HttpsServers servers;
    const updater::SigningKey key;
    PublishFeed(servers, key);
    const std::wstring address = servers.Address(updater::kNginx, kFeedFile);
    const wchar_t* const keys[] = {key.publicText.c_str()};
    AppUpdateSettings settings{};
    settings.size = sizeof(settings);
    settings.feedAddress = address.c_str();
    settings.publicKeys = keys;
    settings.publicKeyCount = 1;
    settings.runningVersion = kRunningVersion;
    settings.installDirectory = arguments[1];
    settings.dataDirectory = arguments[1];
    const std::wstring header = L"If-None-Match: " + EntityTag(servers);

    // Each side's first time is left out: the first check fetches the feed, and both load what they
    // need.
    CheckAsTheProduct(settings);
    AskBare(servers, header);
    const int times = std::stoi(arguments[0]);
    for (int turn = 0; turn < times; ++turn) {
        const double ours = CheckAsTheProduct(settings);
        PrintNumbers({ours, AskBare(servers, header)});
    }
    if (CountUnchanged(servers) != 2 * times + 1) {
        throw std::runtime_error("The feed was fetched again");
    }
}

}  // namespace

}  // namespace bench

int wmain(int count, wchar_t** tokens) {
    return bench::RunProgram({tokens, static_cast<std::size_t>(count)}, 2,
                             "check-time TIMES DIRECTORY", bench::Run);
}
