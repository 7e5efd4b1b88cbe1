#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace updater {

/// Splits a command line, without its program, by the documented rules of `CommandLineToArgvW`:
/// outside quotes, blanks and tabs separate; an even run of backslashes before a double quote
/// stands for half as many and the quote opens or closes a quoted stretch; an odd run stands for
/// half as many and a literal quote; any other backslash is literal. What a quote means that
/// directly follows a closing one is not documented; here it opens the next stretch.
std::vector<std::wstring> SplitArguments(std::wstring_view commandLine);

}  // namespace updater
