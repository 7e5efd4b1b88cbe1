#include "support/file_digest.h"

#include <optional>
#include <span>
#include <stdexcept>

#include "support/file_reading.h"
#include "support/sha256.h"

namespace updater {

namespace {

bool HashFile(const std::filesystem::path& path, const Sha256& digest) {
    const UniqueHandle file = OpenFileToRead(path);
    return file && VisitPortions(file.get(), [&digest](std::span<char> portion) {
               return AddToSha256(digest, {portion.data(), portion.size()});
           });
}

}  // namespace

std::string FileSha256Hex(const std::filesystem::path& file) {
    const std::optional<Sha256> digest = BeginSha256();
    if (!digest) {
        throw std::runtime_error("SHA256 initialization failed");
    }
    const std::optional<Sha256Digest> bytes =
        HashFile(file, *digest) ? FinishSha256(*digest) : std::nullopt;
    if (!bytes) {
        throw std::runtime_error("SHA256 verification failed");
    }
    return Sha256Text(*bytes);
}

}  // namespace updater
