#pragma once

#include <string>
#include <string_view>

namespace updater {

/// Returns the argument in double quotes, so that the system's splitting of a command line
/// (`CommandLineToArgvW`) gives back exactly this text. An empty argument gives two quotes.
std::wstring QuoteArgument(std::wstring_view argument);

}  // namespace updater
