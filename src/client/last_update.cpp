#include "client/last_update.h"

#include <cstddef>
#include <cstdint>

#include "client/guid_text.h"
#include "client/json_reading.h"
#include "client/whole_file.h"
#include "support/json_text.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

constexpr std::size_t kLargestLastUpdate = 4096;

constexpr char kJobName[] = "job";
constexpr char kVersionName[] = "version";
// 0 or 1.
constexpr char kToldName[] = "told";

}  // namespace

std::optional<LastUpdate> ReadLastUpdate(const std::filesystem::path& dataDirectory) {
    const auto text = ReadFileUpTo(dataDirectory / kLastUpdateFile, kLargestLastUpdate);
    if (!text || text->size() > kLargestLastUpdate) {
        return std::nullopt;
    }
    const JsonReading reading = ReadJsonObject(*text);
    const JsonFields kept = reading.object.value_or(JsonFields());
    const auto* const job = FindJson<std::string>(kept, kJobName);
    const auto* const version = FindJson<std::string>(kept, kVersionName);
    const auto* const told = FindJson<std::uint64_t>(kept, kToldName);
    if (job == nullptr || version == nullptr || told == nullptr) {
        return std::nullopt;
    }
    const LastUpdate update{Utf8ToWide(*job), ReadVersionNumber(*version).value_or(VersionNumber()),
                            *told != 0};
    return IsGuidText(update.job) && VersionText(update.version) == *version ? std::optional(update)
                                                                             : std::nullopt;
}

void WriteLastUpdate(const std::filesystem::path& dataDirectory, const LastUpdate& update) {
    ReplaceWholeFile(dataDirectory / kLastUpdateFile,
                     JsonObject({{kJobName, JsonString(WideToUtf8(update.job))},
                                 {kVersionName, JsonString(VersionText(update.version))},
                                 {kToldName, update.told ? "1" : "0"}}));
}

}  // namespace updater
