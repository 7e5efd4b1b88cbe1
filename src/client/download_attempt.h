#pragma once

#include <cstdint>

#include "client/download.h"
#include "client/part_file.h"
#include "client/transport.h"

namespace updater {

/// A download that is on its way.
struct Download {
    Transport& transport;
    const DownloadOrder& order;
    const DownloadProgress& progress;
    PartFile part;
    /// The status of the last answer, or 0.
    std::uint32_t status = 0;
};

/// Calls the callback, if there is one.
void TellProgress(const DownloadOrder& order, const DownloadProgress& progress, std::uint64_t done);

/// Asks for what the part file lacks, once, or for the whole file where the server has another one
/// or gives no parts. The part file has all its bytes then. Raises `ClientFailure` as `Fetch` does,
/// and APP_UPDATE_SERVER_ERROR, APP_UPDATE_WRONG_SIZE, APP_UPDATE_DISK_FULL or
/// APP_UPDATE_FILE_ERROR.
void AttemptDownload(Download& download);

}  // namespace updater
