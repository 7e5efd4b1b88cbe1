#pragma once

#include <functional>

#include "client/download.h"
#include "client/transport.h"

namespace updater {

/// What stands in for the transport and the download in the programs that link it: these have no
/// server. A test sets what it needs; a call that it has not provided for fails.
struct ServerDouble {
    std::function<void(const HttpsRequest& request, const HttpsReceiver& receiver)> fetch;
    std::function<DownloadedSetup(const DownloadOrder& order, const Cancellation& cancellation,
                                  const DownloadProgress& progress)>
        download;
    TransportLimits limits;
    int openTransports = 0;
};

/// The one that is asked.
ServerDouble& TheServer();

}  // namespace updater
