#include "client/digest.h"

#include <optional>
#include <span>
#include <utility>

#include "client/failure.h"
#include "client/whole_file.h"
#include "support/file_reading.h"
#include "support/windows_api.h"

namespace updater {

namespace {

[[noreturn]] void RaiseNoDigest() {
    throw ClientFailure(APP_UPDATE_SYSTEM_ERROR, "The system computes no SHA-256 digest");
}

}  // namespace

Sha256 StartSha256() {
    std::optional<Sha256> digest = BeginSha256();
    if (!digest) {
        RaiseNoDigest();
    }
    return std::move(*digest);
}

void FeedSha256(const Sha256& digest, std::string_view bytes) {
    if (!AddToSha256(digest, bytes)) {
        RaiseNoDigest();
    }
}

Sha256Digest EndSha256(const Sha256& digest) {
    const std::optional<Sha256Digest> bytes = FinishSha256(digest);
    if (!bytes) {
        RaiseNoDigest();
    }
    return *bytes;
}

std::string Sha256OfFile(const UniqueHandle& handle, const std::filesystem::path& file,
                         const Cancellation& cancellation) {
    const Sha256 digest = StartSha256();
    const bool isRead = VisitPortions(handle.get(), [&](std::span<char> portion) {
        RaiseIfCancelled(cancellation);
        FeedSha256(digest, {portion.data(), portion.size()});
        return true;
    });
    if (!isRead) {
        RaiseFileFailure(kCannotRead, file, GetLastError());
    }
    return Sha256Text(EndSha256(digest));
}

}  // namespace updater
