#include "fuzz/oracle/feed_rules.h"

#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace updater {

namespace {

using nlohmann::json;

constexpr int kMostLevels = 16;
constexpr std::size_t kLongestPayload = 1048576;
constexpr std::size_t kLongestText = 2048;
constexpr std::uint64_t kLargestSetup = 8589934592;

// A tree without names that stand twice and without too many levels, or a discarded value.
json ParseStrictly(std::string_view text) {
    if (text.size() > kLongestPayload || text.find('\0') != std::string_view::npos ||
        text.starts_with("\xEF\xBB\xBF")) {
        return json(json::value_t::discarded);
    }
    std::vector<std::set<std::string>> names;
    bool isStrict = true;
    json tree = json::parse(
        text,
        [&](int depth, json::parse_event_t event, json& parsed) {
            switch (event) {
                case json::parse_event_t::object_start:
                case json::parse_event_t::array_start:
                    isStrict = isStrict && depth < kMostLevels;
                    names.emplace_back();
                    break;
                case json::parse_event_t::object_end:
                case json::parse_event_t::array_end:
                    names.pop_back();
                    break;
                case json::parse_event_t::key:
                    isStrict = names.back().insert(parsed.get<std::string>()).second && isStrict;
                    break;
                default:
                    break;
            }
            return true;
        },
        false);
    return isStrict ? tree : json(json::value_t::discarded);
}

// Whether a member is a text of this form.
bool IsText(const json& tree, const char* name, const char* form) {
    const auto member = tree.find(name);
    if (member == tree.end() || !member->is_string()) {
        return false;
    }
    const auto& text = member->get_ref<const std::string&>();
    return text.size() <= kLongestText && std::regex_match(text, std::regex(form));
}

bool IsNumber(const json& tree, const char* name, std::uint64_t lowest, std::uint64_t highest) {
    const auto member = tree.find(name);
    return member != tree.end() && member->is_number_unsigned() &&
           member->get<std::uint64_t>() >= lowest && member->get<std::uint64_t>() <= highest;
}

// Whether each number is written without zeros before it and fits into 16 bits.
bool IsVersion(const json& tree, const char* name) {
    if (!IsText(tree, name, R"((0|[1-9]\d{0,4})(\.(0|[1-9]\d{0,4})){3})")) {
        return false;
    }
    const std::string text = tree.at(name).get<std::string>() + ".";
    for (std::size_t begin = 0; begin < text.size(); begin = text.find('.', begin) + 1) {
        if (std::stoul(text.substr(begin)) > 65535) {
            return false;
        }
    }
    return true;
}

constexpr char kFeedAddress[] =
    R"((?:[hH][tT][tT][pP][sS]:)?//(?![/?#:])[^/?#@]+([/?#].*)?|(?!//)(?![A-Za-z][-A-Za-z0-9+.]*:).+)";
constexpr char kAbsoluteAddress[] = R"([hH][tT][tT][pP][sS]://(?![/?#:])[^/?#@]+([/?#].*)?)";
constexpr char kAddressCharacters[] = R"([!#-;=?-\[\]_a-z~]+)";

bool IsAddress(const json& tree, const char* name, const char* form) {
    return IsText(tree, name, kAddressCharacters) && IsText(tree, name, form);
}

bool IsLeapYear(int year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

int DaysOfMonth(int year, int month) {
    constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

std::optional<UnixTime> TimeOf(const json& tree, const char* name) {
    if (!IsText(
            tree, name,
            R"(\d{4}-(0[1-9]|1[0-2])-(0[1-9]|[12]\d|3[01])T([01]\d|2[0-3]):[0-5]\d:[0-5]\dZ)")) {
        return std::nullopt;
    }
    const auto text = tree.at(name).get<std::string>();
    const int year = std::stoi(text.substr(0, 4));
    const int month = std::stoi(text.substr(5, 2));
    const int day = std::stoi(text.substr(8, 2));
    if (day > DaysOfMonth(year, month)) {
        return std::nullopt;
    }
    UnixTime days = day - 1;
    for (int earlier = 1; earlier < month; ++earlier) {
        days += DaysOfMonth(year, earlier);
    }
    for (int between = 1970; between < year; ++between) {
        days += IsLeapYear(between) ? 366 : 365;
    }
    for (int between = year; between < 1970; ++between) {
        days -= IsLeapYear(between) ? 366 : 365;
    }
    return ((days * 24 + std::stoi(text.substr(11, 2))) * 60 + std::stoi(text.substr(14, 2))) * 60 +
           std::stoi(text.substr(17, 2));
}

bool HasEverything(const json& tree) {
    return tree.is_object() && IsVersion(tree, "version") &&
           IsNumber(tree, "size", 1, kLargestSetup) && IsText(tree, "sha256", "[0-9a-f]{64}") &&
           IsAddress(tree, "address", kFeedAddress) && IsNumber(tree, "issue", 1, 4294967295) &&
           TimeOf(tree, "published") && TimeOf(tree, "expires") &&
           IsText(tree, "channel", "[a-z0-9-]{1,32}");
}

bool HasNothingWrong(const json& tree) {
    return (!tree.contains("lowestVersion") || IsVersion(tree, "lowestVersion")) &&
           (!tree.contains("share") || IsNumber(tree, "share", 0, 100)) &&
           (!tree.contains("notes") || IsAddress(tree, "notes", kAbsoluteAddress));
}

}  // namespace

std::optional<Feed> FeedByTheRules(std::string_view payload) {
    const json tree = ParseStrictly(payload);
    if (!HasEverything(tree) || !HasNothingWrong(tree)) {
        return std::nullopt;
    }
    Feed feed;
    feed.version = *ReadVersionNumber(tree.at("version").get<std::string>());
    feed.size = tree.at("size").get<std::uint64_t>();
    feed.sha256 = tree.at("sha256").get<std::string>();
    feed.address = tree.at("address").get<std::string>();
    feed.issue = tree.at("issue").get<std::uint32_t>();
    feed.published = *TimeOf(tree, "published");
    feed.expires = *TimeOf(tree, "expires");
    feed.channel = tree.at("channel").get<std::string>();
    feed.lowestVersion = *ReadVersionNumber(tree.value("lowestVersion", std::string("0.0.0.0")));
    feed.share = tree.value("share", std::uint32_t{100});
    feed.notes = tree.value("notes", std::string());
    return feed;
}

}  // namespace updater
