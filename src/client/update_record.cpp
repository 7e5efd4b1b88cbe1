#include "client/update_record.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <nlohmann/json.hpp>

#include "client/kept_file.h"
#include "support/status_file.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr std::size_t kLargestRecord = 65536;

// The updater's writes that follow one another at once are a few milliseconds apart.
constexpr std::uint64_t kRestMilliseconds = 250;

constexpr std::array<std::string_view, 6> kStates = {
    kStateAuthorized, kStateReady, kStateInstalling, kStateSucceeded, kStateFailed, kStateCancelled,
};

std::uint64_t Combine(DWORD high, DWORD low) {
    return static_cast<std::uint64_t>(high) << 32U | low;
}

}  // namespace

std::optional<UpdateRecord> ParseUpdateRecord(std::string_view text) {
    // A message may hold the system's words in the machine's own code page.
    const std::string valid = WideToUtf8(Utf8ToWide(text));
    const nlohmann::json record = nlohmann::json::parse(valid, nullptr, /*allow_exceptions=*/false);
    if (!record.is_object() || !record.contains("state") || !record["state"].is_string() ||
        !record.contains("message") || !record["message"].is_string() ||
        !record.contains("exitCode") || !record["exitCode"].is_number_integer()) {
        return std::nullopt;
    }
    UpdateRecord result{record["state"].get<std::string>(), record["message"].get<std::string>(),
                        record["exitCode"].get<std::int64_t>()};
    return std::ranges::find(kStates, result.state) != kStates.end() ? std::optional(result)
                                                                     : std::nullopt;
}

RecordMark MarkOfRecord(const std::filesystem::path& jobDirectory) {
    WIN32_FIND_DATAW entry{};
    HANDLE search = FindFirstFileExW((jobDirectory / kStatusFile).c_str(), FindExInfoBasic, &entry,
                                     FindExSearchNameMatch, nullptr, 0);
    if (search == INVALID_HANDLE_VALUE) {
        return {};
    }
    FindClose(search);
    return {Combine(entry.ftLastWriteTime.dwHighDateTime, entry.ftLastWriteTime.dwLowDateTime),
            Combine(entry.nFileSizeHigh, entry.nFileSizeLow)};
}

bool LookAtRecord(RecordWatch& watch, const std::filesystem::path& jobDirectory) {
    const std::uint64_t now = GetTickCount64();
    const RecordMark mark = MarkOfRecord(jobDirectory);
    if (watch.since == 0 || mark != watch.mark) {
        watch = {mark, now, false, std::nullopt};
        return false;
    }
    if (now - watch.since < kRestMilliseconds) {
        return false;
    }
    if (!watch.isRead) {
        watch.isRead = true;
        watch.record = ReadUpdateRecord(jobDirectory);
    }
    return true;
}

std::optional<UpdateRecord> ReadUpdateRecord(const std::filesystem::path& jobDirectory) {
    const auto text = ReadKeptFile(jobDirectory / kStatusFile, kLargestRecord);
    return text ? ParseUpdateRecord(*text) : std::nullopt;
}

}  // namespace updater
