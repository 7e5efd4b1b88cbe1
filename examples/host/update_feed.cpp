#include "update_feed.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

#include "text.h"

namespace corvellan {

namespace {

std::filesystem::path FeedDirectory(const Application& application) {
    const std::wstring directory = ReadEnvironment(L"CORVELLAN_FEED");
    return directory.empty() ? application.installDirectory : std::filesystem::absolute(directory);
}

}  // namespace

UpdateOffer ReadUpdateFeed(const Application& application) {
    const std::filesystem::path directory = FeedDirectory(application);
    const std::optional<std::string> text = ReadTextFile(directory / L"update-feed.json");
    if (!text) {
        throw std::runtime_error("There is no update-feed.json in " + Narrow(directory.native()));
    }
    const nlohmann::json feed = nlohmann::json::parse(*text);
    return {Widen(feed.at("version").get<std::string>()),
            directory / Widen(feed.at("setup").get<std::string>()),
            feed.at("size").get<std::uint64_t>(), Widen(feed.at("sha256").get<std::string>())};
}

}  // namespace corvellan
