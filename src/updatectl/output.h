#pragma once

#include <string>
#include <string_view>

namespace updater {

/// Writes UTF-8 text to standard output; a console gets it as UTF-16, whatever its code page. A
/// process without a standard output writes nothing. Raises `std::system_error` when the text could
/// not be written.
void PrintOutput(std::string_view text);

/// The same for standard error, except that a failure is ignored: there is nowhere left to tell.
void PrintError(std::string_view text);

/// Whether a person sees standard output in a console.
bool IsOutputTerminal();

/// Returns the text as UTF-8 for people to read. What a file's name may hold and nobody would see,
/// such as control characters, or what is no valid UTF-16, shows as its code: "<U+0009>".
std::string PrintableText(std::wstring_view text);

}  // namespace updater
