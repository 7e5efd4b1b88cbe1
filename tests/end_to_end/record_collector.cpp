#include "end_to_end/record_collector.h"

#include <array>
#include <nlohmann/json.hpp>
#include <utility>

#include "support/handle.h"
#include "support/status_file.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr DWORD kPollingInterval = 2;

// How long the file must be left alone before it is opened.
constexpr std::chrono::milliseconds kRestTime{8};

// What changes with every new record, as the directory tells it.
struct FileMark {
    std::uint64_t written = 0;
    std::uint64_t created = 0;
    std::uint64_t size = 0;

    bool operator==(const FileMark&) const = default;
};

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

void AddRecord(RecordCollector& collector, StatusRecord record) {
    const std::scoped_lock lock(collector.access);
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

void Watch(RecordCollector& collector, const std::stop_token& stop) {
    const std::filesystem::path file = collector.jobDirectory / kStatusFile;
    std::optional<FileMark> seen;
    std::optional<FileMark> read;
    auto changed = std::chrono::steady_clock::now();
    while (!stop.stop_requested()) {
        const std::optional<FileMark> mark = MarkOf(file);
        const auto now = std::chrono::steady_clock::now();
        if (mark != seen) {
            seen = mark;
            changed = now;
        } else if (mark && mark != read && now - changed >= kRestTime) {
            const std::optional<StatusRecord> record = ReadStatusRecord(collector.jobDirectory);
            if (record) {
                read = mark;
                AddRecord(collector, *record);
            }
        }
        Sleep(kPollingInterval);
    }
}

}  // namespace

std::optional<StatusRecord> ReadStatusRecord(const std::filesystem::path& jobDirectory) {
    const std::optional<std::string> text = ReadText(jobDirectory / kStatusFile);
    if (!text) {
        return std::nullopt;
    }
    const nlohmann::json json = nlohmann::json::parse(*text);
    return StatusRecord{json.at("state").get<std::string>(),
                        json.at("message").get<std::string>(),
                        json.at("exitCode").get<std::int64_t>(),
                        *text,
                        {}};
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

std::vector<StatusRecord> RecordCollector::Records() {
    const std::scoped_lock lock(access);
    if (failure) {
        std::rethrow_exception(failure);
    }
    return records;
}

}  // namespace updater
