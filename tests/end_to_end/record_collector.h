#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace updater {

struct StatusRecord {
    std::string state;
    std::string message;
    std::int64_t exitCode = 0;
    /// The file's text as it stands.
    std::string text;
    /// Since the collector began.
    std::chrono::milliseconds elapsed{};
};

/// Returns the record in the job directory's status file; nothing without a file. Raises the JSON
/// library's errors.
std::optional<StatusRecord> ReadStatusRecord(const std::filesystem::path& jobDirectory);

using RecordObserver = std::function<void(const StatusRecord& record)>;

/// Collects the records that appear one after the other in a job directory's status file.
///
/// The file is opened only once it has not changed for a moment: an open file is in the way of the
/// rename that brings the next record. A record that is replaced within that moment is missed.
struct RecordCollector {
    /// The observer is called, on the collector's thread, with each record as it comes.
    explicit RecordCollector(std::filesystem::path watchedDirectory,
                             RecordObserver recordObserver = {});

    /// The records so far.
    std::vector<StatusRecord> Records();

    std::filesystem::path jobDirectory;
    RecordObserver observer;
    std::chrono::steady_clock::time_point begin;
    std::mutex access;
    std::vector<StatusRecord> records;
    std::exception_ptr failure;
    /// Last, so that it ends before what it uses.
    std::jthread watcher;
};

}  // namespace updater
