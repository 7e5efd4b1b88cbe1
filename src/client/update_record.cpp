#include "client/update_record.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>

#include "client/json_reading.h"
#include "support/file_reading.h"
#include "support/handle.h"
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
    const JsonReading reading = ReadJsonObject(valid);
    const JsonFields fields = reading.object.value_or(JsonFields());
    const auto* const state = FindJson<std::string>(fields, "state");
    const auto* const message = FindJson<std::string>(fields, "message");
    if (state == nullptr || message == nullptr ||
        std::ranges::find(kStates, *state) == kStates.end()) {
        return std::nullopt;
    }
    // A negative number says nothing here.
    const auto* const exitCode = FindJson<std::uint64_t>(fields, "exitCode");
    return UpdateRecord{*state, *message, exitCode == nullptr ? 0 : *exitCode};
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
    // The updater may replace it all the same.
    const UniqueHandle file =
        OwnHandle(CreateFileW((jobDirectory / kStatusFile).c_str(), GENERIC_READ,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    std::string text;
    const auto append = [&text](std::span<const char> portion) {
        text.append(portion.begin(), portion.end());
        return text.size() <= kLargestRecord;
    };
    return file && VisitPortions(file.get(), append) ? ParseUpdateRecord(text) : std::nullopt;
}

}  // namespace updater
