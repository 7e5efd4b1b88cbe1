#include "client/session/server_double.h"

#include <stdexcept>

namespace updater {

// These are found before those of the library.

struct Transport {};

void TransportCloser::operator()(Transport* transport) const noexcept {
    --TheServer().openTransports;
    delete transport;
}

UniqueTransport OpenTransport(const TransportLimits& limits, const Cancellation& /*cancellation*/) {
    TheServer().limits = limits;
    ++TheServer().openTransports;
    return UniqueTransport(new Transport);
}

void Fetch(Transport& /*transport*/, const HttpsRequest& request, const HttpsReceiver& receiver) {
    if (!TheServer().fetch) {
        throw std::runtime_error("No request was expected");
    }
    TheServer().fetch(request, receiver);
}

DownloadedSetup DownloadSetup(Transport& /*transport*/, const DownloadOrder& order,
                              const Cancellation& cancellation, const DownloadProgress& progress) {
    if (!TheServer().download) {
        throw std::runtime_error("No download was expected");
    }
    return TheServer().download(order, cancellation, progress);
}

ServerDouble& TheServer() {
    static ServerDouble server;
    return server;
}

}  // namespace updater
