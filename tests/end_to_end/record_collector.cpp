#include "end_to_end/record_collector.h"

#include <array>
#include <string_view>
#include <utility>

#include "support/handle.h"
#include "support/status_file.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr DWORD kPollingInterval = 2;

// How long the file must be left alone before it is opened.
constexpr std::chrono::milliseconds kRestTime{8};

// The size of the record "authorized".
constexpr std::uint64_t kFirstRecordSize =
    std::string_view(
        R"({"state":"authorized","message":"Administrator authorization accepted","exitCode":0})")
        .size();

std::uint64_t Combine(DWORD high, DWORD low) {
    return (static_cast<std::uint64_t>(high) << 32U) | low;
}

std::optional<FileMark> MarkOf(const std::filesystem::path& file) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (GetFileAttributesExW(file.c_str(), GetFileExInfoStandard, &data) == 0) {
        return std::nullopt;
    }
    return FileMark{
        Combine(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime),
        Combine(data.ftCreationTime.dwHighDateTime, data.ftCreationTime.dwLowDateTime),
        Combine(data.nFileSizeHigh, data.nFileSizeLow)};
}

std::optional<std::string> ReadText(const std::filesystem::path& file) {
    const UniqueHandle handle = OwnHandle(CreateFileW(
        file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!handle) {
        return std::nullopt;
    }
    std::string text;
    std::array<char, 4096> buffer{};
    DWORD count = 0;
    while (ReadFile(handle.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &count,
                    nullptr) != 0 &&
           count > 0) {
        text.append(buffer.data(), count);
    }
    return text;
}

void AddRecord(RecordCollector& collector, const FileMark& mark, CollectedRecord record) {
    const std::scoped_lock lock(collector.access);
    collector.read = mark;
    if (!collector.records.empty() && collector.records.back().text == record.text) {
        return;
    }
    record.elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - collector.begin);
    if (collector.observer) {
        collector.observer(record);
    }
    collector.records.push_back(std::move(record));
}

bool IsToBeRead(const RecordCollector& collector, const FileMark& mark) {
    return mark != collector.read && (mark.size != kFirstRecordSize || collector.readsFirstRecord);
}

void Watch(RecordCollector& collector, const std::stop_token& stop) {
    const std::filesystem::path file = collector.jobDirectory / kStatusFile;
    std::optional<FileMark> seen;
    auto changed = std::chrono::steady_clock::now();
    while (!stop.stop_requested()) {
        const std::optional<FileMark> mark = MarkOf(file);
        const auto now = std::chrono::steady_clock::now();
        if (mark != seen) {
            seen = mark;
            changed = now;
        } else if (mark && IsToBeRead(collector, *mark) && now - changed >= kRestTime) {
            const std::optional<CollectedRecord> record = FindStatusRecord(collector.jobDirectory);
            if (record) {
                AddRecord(collector, *mark, *record);
            }
        }
        Sleep(kPollingInterval);
    }
}

}  // namespace

std::optional<CollectedRecord> FindStatusRecord(const std::filesystem::path& jobDirectory) {
    const std::optional<std::string> text = ReadText(jobDirectory / kStatusFile);
    if (!text) {
        return std::nullopt;
    }
    return CollectedRecord{ParseStatusRecord(*text), *text, {}};
}

RecordCollector::RecordCollector(std::filesystem::path watchedDirectory,
                                 RecordObserver recordObserver)
    : jobDirectory(std::move(watchedDirectory)),
      observer(std::move(recordObserver)),
      begin(std::chrono::steady_clock::now()) {
    watcher = std::jthread([this](const std::stop_token& stop) {
        try {
            Watch(*this, stop);
        } catch (const std::exception&) {
            const std::scoped_lock lock(access);
            failure = std::current_exception();
        }
    });
}

std::vector<CollectedRecord> RecordCollector::Records() {
    const std::scoped_lock lock(access);
    if (failure) {
        std::rethrow_exception(failure);
    }
    return records;
}

bool RecordCollector::HasLastRecord() {
    const std::scoped_lock lock(access);
    if (failure) {
        std::rethrow_exception(failure);
    }
    return MarkOf(jobDirectory / kStatusFile) == read;
}

}  // namespace updater
