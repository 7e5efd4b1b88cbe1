#pragma once

#include <string>
#include <vector>

namespace updater {

/// Splits a command line as the system does. The first token is the program.
std::vector<std::wstring> SplitBySystem(const std::wstring& commandLine);

/// Returns the quoted arguments with a blank before each.
std::wstring JoinQuoted(const std::vector<std::wstring>& arguments);

}  // namespace updater
