#pragma once

#include <cstddef>
#include <string>

#include "inputs/random_source.h"

namespace updater {

/// The length of the longest texts that are tried.
inline constexpr std::size_t kLongText = 30000;

/// Returns a text that a splitting of command lines may stumble over: runs of backslashes, quotes
/// and blanks, lone surrogates, control characters, options, all in any order. It may be empty, and
/// holds no zero character, which a command line cannot.
std::wstring RandomArgument(RandomSource& random);

/// Returns such a text of exactly this length.
std::wstring RandomArgument(RandomSource& random, std::size_t length);

/// Returns a text of exactly this length in which any UTF-16 unit but zero is as likely as another.
std::wstring RandomUnits(RandomSource& random, std::size_t length);

/// Returns so many bytes: either any bytes, or the UTF-8 of any characters, cut off at the end.
std::string RandomBytes(RandomSource& random, std::size_t length);

}  // namespace updater
