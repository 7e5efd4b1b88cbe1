#pragma once

#include <string>
#include <string_view>

namespace updater {

/// Returns the text in capitals by the rules of the Windows file system: two names are the same
/// file there when this makes them equal.
std::wstring FoldCase(std::wstring_view text);

/// Returns why Windows, or the inventory, cannot hold a file or directory of this name, in words
/// that follow the name: "has a tab or a line break in its name". Empty for a name without fault.
/// Such names exist on other systems' disks, and some can be made on Windows in roundabout ways.
std::string_view FaultOfName(std::wstring_view name);

/// Raises `std::runtime_error` when most files' names reach this program as others, as they do on
/// another system than Windows whose character set is not UTF-8: what the tool wrote would then
/// name files that no user gets.
void RefuseMangledNames();

}  // namespace updater
