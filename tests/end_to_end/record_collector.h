#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "fixtures/status_record.h"

namespace updater {

/// A record as the collector has met with it.
struct CollectedRecord : StatusRecord {
    /// The file's text as it stands.
    std::string text;
    /// Since the collector began.
    std::chrono::milliseconds elapsed{};
};

/// Returns the record in the job directory's status file; nothing without a file. Raises the JSON
/// library's errors.
std::optional<CollectedRecord> FindStatusRecord(const std::filesystem::path& jobDirectory);

/// What changes with every new record, as the directory tells it without the file being opened.
struct FileMark {
    std::uint64_t written = 0;
    std::uint64_t created = 0;
    std::uint64_t size = 0;

    bool operator==(const FileMark&) const = default;
};

using RecordObserver = std::function<void(const CollectedRecord& record)>;

/// Collects the records that appear one after the other in a job directory's status file.
///
/// The file is opened only once it has not changed for a moment: an open file is in the way of the
/// rename that brings the next record. A record that is replaced within that moment is missed. The
/// worker's first record, which the broker's "ready" follows at once, is left alone unless told
/// otherwise.
struct RecordCollector {
    /// The observer is called, on the collector's thread, with each record as it comes.
    explicit RecordCollector(std::filesystem::path watchedDirectory,
                             RecordObserver recordObserver = {});

    /// The records so far.
    std::vector<CollectedRecord> Records();

    /// Whether the record that the file holds now, if any, is among them.
    bool HasLastRecord();

    std::filesystem::path jobDirectory;
    /// Set it while nobody can write the next one.
    std::atomic<bool> readsFirstRecord = false;
    RecordObserver observer;
    std::chrono::steady_clock::time_point begin;
    std::mutex access;
    std::vector<CollectedRecord> records;
    /// Of the file when it was read last.
    std::optional<FileMark> read;
    std::exception_ptr failure;
    /// Last, so that it ends before what it uses.
    std::jthread watcher;
};

}  // namespace updater
