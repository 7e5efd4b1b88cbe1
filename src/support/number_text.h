#pragma once

#include <cstdint>
#include <string_view>

namespace updater {

/// Reads an unsigned 32-bit decimal number by the rules of the standard string-to-unsigned-long
/// conversion: leading white space and one sign are accepted, whatever follows the digits is
/// ignored, and a minus sign negates modulo 2^32. Raises `std::invalid_argument` "invalid stoul
/// argument" when there is no digit and `std::out_of_range` "stoul argument out of range" beyond 32
/// bits, on every toolchain.
std::uint32_t ParseUnsigned32(std::wstring_view text);

/// The same for 64 bits, with "invalid stoull argument" and "stoull argument out of range".
std::uint64_t ParseUnsigned64(std::wstring_view text);

}  // namespace updater
