#include "client/last_update.h"

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>

#include "client/kept_file.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

constexpr wchar_t kLastUpdateFile[] = L"last-update.json";
constexpr std::size_t kLargestLastUpdate = 4096;

constexpr char kJobKey[] = "job";
constexpr char kVersionKey[] = "version";
constexpr char kToldKey[] = "told";

// Returns an empty text for what is none.
std::string TextAt(const nlohmann::json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

}  // namespace

bool IsJobIdentity(std::wstring_view text) {
    constexpr std::wstring_view kForm = L"{00000000-0000-0000-0000-000000000000}";
    return std::ranges::equal(text, kForm, [](wchar_t character, wchar_t form) {
        return form == L'0' ? (character >= L'0' && character <= L'9') ||
                                  (character >= L'A' && character <= L'F')
                            : character == form;
    });
}

std::optional<LastUpdate> ReadLastUpdate(const std::filesystem::path& dataDirectory) {
    const auto text = ReadKeptFile(dataDirectory / kLastUpdateFile, kLargestLastUpdate);
    const nlohmann::json kept =
        nlohmann::json::parse(text.value_or(std::string()), nullptr, /*allow_exceptions=*/false);
    if (!kept.is_object()) {
        return std::nullopt;
    }
    LastUpdate update{Utf8ToWide(TextAt(kept, kJobKey)), {}, false};
    const std::optional<VersionNumber> version = ReadVersionNumber(TextAt(kept, kVersionKey));
    const auto told = kept.find(kToldKey);
    if (!IsJobIdentity(update.job) || !version || told == kept.end() || !told->is_boolean()) {
        return std::nullopt;
    }
    update.version = *version;
    update.told = told->get<bool>();
    return update;
}

void WriteLastUpdate(const std::filesystem::path& dataDirectory, const LastUpdate& update) {
    nlohmann::ordered_json kept;
    kept[kJobKey] = WideToUtf8(update.job);
    kept[kVersionKey] = VersionText(update.version);
    kept[kToldKey] = update.told;
    ReplaceKeptFile(dataDirectory / kLastUpdateFile, kept.dump());
}

}  // namespace updater
