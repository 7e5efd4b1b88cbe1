#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace updater {

/// Which files and directories to leave out: the elements of a path relative to the program
/// directory, in capitals. An element may hold "*" for any characters and "?" for one; an element
/// "**" stands for any number of directories, also none.
using ExcludePattern = std::vector<std::wstring>;

/// Reads a pattern as the command line gives it. Backslashes and slashes separate elements; one at
/// the end changes nothing. A pattern of one element matches at any depth. Raises `UsageError` for
/// a pattern that does not lead down from the program directory.
ExcludePattern ParseExcludePattern(std::wstring_view text);

/// Whether the pattern matches the whole relative path, letter case aside.
bool MatchesPattern(const ExcludePattern& pattern, std::wstring_view relativePath);

}  // namespace updater
