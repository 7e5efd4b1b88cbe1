#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace updater::faults {

/// What a run of the updater leaves: the words for each side of it, under that side's name.
/// In an expectation, `kAnything` stands for a side that is left open.
using Outcome = std::map<std::string, std::string>;

inline constexpr char kAnything[] = "(anything)";

/// How the run ends, "exit code 1" for example.
inline constexpr char kEnd[] = "end";
/// "none", "empty", "not a record", or state, message and exit code. The paths in the library's
/// messages are left out.
inline constexpr char kStatus[] = "status";
inline constexpr char kOpenFiles[] = "open files";
inline constexpr char kOpenHandles[] = "open handles";

/// Runs the updater, as its entry point does, and returns how that ends.
std::string EndOfUpdater();

std::string StatusText(const std::string& state, const std::string& message, int exitCode);

/// Returns the same from the job directory's status file.
std::string ReadStatus(const std::filesystem::path& jobDirectory);

/// Returns the names of the files below the directory that somebody holds open.
std::string FilesHeldOpen(const std::filesystem::path& directory);

/// Returns a sentence for each side in which the outcome is not the expected one.
std::string Differences(const Outcome& expected, const Outcome& actual);

}  // namespace updater::faults
