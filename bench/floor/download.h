#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "floor/bare_calls.h"

namespace bench {

/// Downloads a file with bare calls of WinHTTP, one after the other, and returns the digest that
/// it has computed meanwhile. The file is written through to the disk. Raises
/// `std::runtime_error`.
Digest DownloadFile(const std::wstring& host, std::uint16_t port, const std::wstring& target,
                    const std::filesystem::path& file);

}  // namespace bench
