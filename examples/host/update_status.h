#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace corvellan {

/// What the updater reports in the job directory's "status.json".
struct UpdateStatus {
    std::string state;
    std::string message;
};

/// Reads the report; nothing if there is none that can be read.
std::optional<UpdateStatus> ReadUpdateStatus(const std::filesystem::path& jobDirectory);

/// Tells reports apart without opening them. The updater replaces the file, and a reader that has
/// it open just then makes that fail, and the update with it. So an application that waits for a
/// change compares marks, and reads the report only when nothing has happened for a while. 0 stands
/// for no report.
std::uint64_t ReadStatusMark(const std::filesystem::path& jobDirectory);

/// True when the application can close for the update to go on.
bool IsReadyForExit(const UpdateStatus& status);

/// True when the update has ended, well or not.
bool IsOutcome(const UpdateStatus& status);

/// Puts a report into words for the user; `version` is the version of the running application.
std::wstring DescribeStatus(const UpdateStatus& status, const std::wstring& version);

}  // namespace corvellan
