#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace updater {

/// What the updater reports in the job directory (see support/status_file.h).
struct UpdateRecord {
    /// One of the state words.
    std::string state;
    std::string message;
    std::uint64_t exitCode = 0;
};

/// Reads a record's text; nothing if it is none, for example because the disk was full when it was
/// written. Bytes that are no UTF-8 become replacement characters.
std::optional<UpdateRecord> ParseUpdateRecord(std::string_view text);

/// Tells records apart without opening the file: its time and size as the directory has them, or
/// nothing but zeros when there is none.
struct RecordMark {
    std::uint64_t time = 0;
    std::uint64_t size = 0;

    friend bool operator==(const RecordMark&, const RecordMark&) = default;
};
RecordMark MarkOfRecord(const std::filesystem::path& jobDirectory);

/// Follows the record of an update. The updater replaces the file, and a reader that has it open
/// just then makes that fail, and the update with it: so it is opened only after it has been the
/// same for a while, and once for each record.
struct RecordWatch {
    RecordMark mark;
    /// When the mark was first seen, as the system counts its milliseconds; 0 before the first
    /// look.
    std::uint64_t since = 0;
    bool isRead = false;
    /// What was read last.
    std::optional<UpdateRecord> record;
};

/// Looks once. Returns whether the record has come to rest and `watch.record` is what it says now.
bool LookAtRecord(RecordWatch& watch, const std::filesystem::path& jobDirectory);

/// Reads the record of an update at which nobody works any more.
std::optional<UpdateRecord> ReadUpdateRecord(const std::filesystem::path& jobDirectory);

}  // namespace updater
