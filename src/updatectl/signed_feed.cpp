#include "updatectl/signed_feed.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>
#include <string>

#include "client/envelope.h"
#include "client/failure.h"
#include "updatectl/file_access.h"

namespace updater {

namespace {

constexpr std::size_t kLargestKey = 65536;

PublicKey ReadKey(const std::filesystem::path& file) {
    const std::optional<PublicKey> key = ReadPublicKey(ContentOf(file, kLargestKey));
    if (!key) {
        RaiseUnusable(file, "it is no public key of the curve P-256 in PEM form");
    }
    return *key;
}

}  // namespace

std::vector<PublicKey> ReadKeys(const CommandOptions& options) {
    const std::vector<std::wstring> files = OptionValues(options, kKeyOption);
    if (files.empty()) {
        throw UsageError("--key is missing");
    }
    std::vector<PublicKey> keys;
    std::ranges::transform(files, std::back_inserter(keys), ReadKey);
    return keys;
}

Feed ReadSignedFeed(const std::filesystem::path& file, std::span<const PublicKey> keys) {
    const std::string envelope = ContentOf(file, kLargestEnvelope);
    try {
        return ReadFeed(OpenEnvelope(envelope, keys));
    } catch (const ClientFailure& failure) {
        RaiseUnusable(file, failure.what());
    }
}

}  // namespace updater
