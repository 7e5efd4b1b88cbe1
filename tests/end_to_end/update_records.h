#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "fixtures/status_record.h"

// The records in the status file of an update that is under way.
//
// Under Wine a file that any process has open cannot be replaced, so whoever reads the file while
// somebody may write the next record makes the update fail. The functions below that open it say
// so: the caller holds up whoever might write. `MarkOfLastRecord` asks the directory alone.

namespace updater {

/// Returns a record's text as it stands in the status file; the message needs no escaping.
std::string RecordText(const std::string& state, const std::string& message, int exitCode);

/// Returns the text of the record with this state word in an update to version 2; for "failed" of
/// one whose setup program ends half-way. No state word stands for no record.
std::string RecordOf(const std::string& state);

/// What changes with every new record.
struct RecordMark {
    std::uint64_t written = 0;
    std::uint64_t size = 0;

    bool operator==(const RecordMark&) const = default;
};

/// Returns the time and the size of the last record; nothing without one.
std::optional<RecordMark> MarkOfLastRecord(const std::filesystem::path& jobDirectory);

/// Returns the state word of a record by its whole text; "?" for a text that `RecordOf` has not.
std::string StateOfRecord(const std::string& text);

/// Opens the file and returns the last record's text; empty without one.
std::string LastRecordText(const std::filesystem::path& jobDirectory);

/// Opens the file and returns the last record; nothing without one. Raises the JSON library's
/// errors for what is no whole record.
std::optional<StatusRecord> FindLastRecord(const std::filesystem::path& jobDirectory);

}  // namespace updater
