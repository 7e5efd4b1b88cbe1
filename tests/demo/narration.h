#pragma once

#include <string>
#include <vector>

#include "end_to_end/whole_update.h"

namespace updater {

/// Writes one line, UTF-8, to the standard output at once.
void Tell(const std::string& line);

/// Tells a text that somebody has read on the screen, each line marked.
void TellLines(const std::string& text);

/// Tells a status record with the time at which it came.
void TellRecord(const TimedRecord& record);

/// Tells whether something that the demonstration promises held, and counts it if not.
void TellCheck(bool held, const std::string& promise);

/// The same for a list of differences that should be empty; tells each of them.
void TellNoDifferences(const std::vector<std::string>& differences, const std::string& promise);

/// How many checks have not held so far.
int CountFailedChecks();

}  // namespace updater
