#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace updater {

/// Returns the fuzzer's input as text.
std::string_view TextOfInput(const std::uint8_t* data, std::size_t size);

/// Reads UTF-8 into UTF-16 code units, one to a character, whatever the width of `wchar_t`.
/// Surrogates stand as they are, so that a lone one can be written too; a byte that belongs to no
/// sequence becomes the unit of its value. Hence every input means something, and a stored input is
/// readable text.
std::wstring UnitsOfText(std::string_view text);

/// Splits the text at its zero bytes, which no part of a command line can hold, and reads each
/// piece with `UnitsOfText`. An empty text has no piece.
std::vector<std::wstring> PiecesOfText(std::string_view text);

}  // namespace updater
