#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "client/transport.h"
#include "support/handle.h"

namespace updater {

/// A setup program that is to be downloaded, as the feed describes it.
struct DownloadOrder {
    std::wstring address;
    std::uint64_t size = 0;
    /// 64 lower-case digits.
    std::string sha256;
    /// Where it is put, under its digest's name; created when it is missing.
    std::filesystem::path directory;
    /// The pause before the second try, in milliseconds; it grows with each further one.
    std::uint32_t firstPause = 1000;
};

struct DownloadedSetup {
    std::filesystem::path file;
    /// Keeps everybody from writing to the file and from deleting it.
    UniqueHandle hold;
};

using DownloadProgress = std::function<void(std::uint64_t done, std::uint64_t total)>;

/// Returns the path of the complete setup program of such a digest, whether or not it is there.
std::filesystem::path SetupPath(const std::filesystem::path& directory, const std::string& sha256);

/// Downloads the setup program, or goes on with a download of it that was interrupted; one that is
/// complete is only verified. After a failure that another try may cure it tries three times more.
/// Raises `ClientFailure` as `Fetch` does, and APP_UPDATE_SERVER_ERROR, APP_UPDATE_WRONG_SIZE,
/// APP_UPDATE_WRONG_DIGEST, APP_UPDATE_DISK_FULL or APP_UPDATE_FILE_ERROR.
DownloadedSetup DownloadSetup(Transport& transport, const DownloadOrder& order,
                              const Cancellation& cancellation, const DownloadProgress& progress);

}  // namespace updater
