#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace corvellan {

std::wstring Widen(std::string_view utf8);
std::string Narrow(std::wstring_view wide);

/// Reads a whole file; nothing if it cannot be opened. Other processes may delete or replace the
/// file meanwhile.
std::optional<std::string> ReadTextFile(const std::filesystem::path& file);

}  // namespace corvellan
