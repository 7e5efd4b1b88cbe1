#include "client/envelope.h"

#include <algorithm>
#include <optional>

#include "client/base64.h"
#include "client/failure.h"
#include "client/json_reading.h"
#include "support/json_text.h"

namespace updater {

namespace {

constexpr char kTypeName[] = "payloadType";
constexpr char kPayloadName[] = "payload";
constexpr char kSignaturesName[] = "signatures";
constexpr char kKeyName[] = "keyid";
constexpr char kSignatureName[] = "sig";

constexpr std::size_t kMostSignatures = 16;

// A signature as the envelope has it: the bytes may be of a kind that is known to other programs
// only.
struct ForeignSignature {
    std::string keyId;
    std::string bytes;
};

[[noreturn]] void RaiseMalformed(const std::string& problem) {
    throw ClientFailure(APP_UPDATE_FEED_MALFORMED, "The feed is not a signed envelope: " + problem);
}

[[noreturn]] void RaiseBadSignature(const std::string& sentence) {
    throw ClientFailure(APP_UPDATE_BAD_SIGNATURE, sentence);
}

template <typename Content>
const Content& Require(const JsonFields& fields, std::string_view name) {
    const auto* const content = FindJson<Content>(fields, name);
    if (content == nullptr) {
        RaiseMalformed('"' + std::string(name) + "\" is missing or of the wrong kind");
    }
    return *content;
}

void RequireOnlyNames(const JsonFields& fields, std::initializer_list<std::string_view> names) {
    if (!HasOnlyNames(fields, names)) {
        RaiseMalformed("it holds more than such an envelope does");
    }
}

std::string RequireBytes(const JsonFields& fields, std::string_view name) {
    std::optional<std::string> bytes = DecodeBase64(Require<std::string>(fields, name));
    if (!bytes) {
        RaiseMalformed('"' + std::string(name) + "\" is not base64");
    }
    return std::move(*bytes);
}

ForeignSignature ReadForeignSignature(const JsonValue& value) {
    const auto* const fields = std::get_if<JsonFields>(&value.content);
    if (fields == nullptr) {
        RaiseMalformed("a signature is not an object");
    }
    RequireOnlyNames(*fields, {kKeyName, kSignatureName});
    return {Require<std::string>(*fields, kKeyName), RequireBytes(*fields, kSignatureName)};
}

std::vector<ForeignSignature> ReadSignatures(const JsonFields& fields) {
    const auto& list = Require<JsonList>(fields, kSignaturesName);
    if (list.size() > kMostSignatures) {
        RaiseMalformed("it has more than " + std::to_string(kMostSignatures) + " signatures");
    }
    std::vector<ForeignSignature> signatures;
    std::ranges::transform(list, std::back_inserter(signatures), ReadForeignSignature);
    return signatures;
}

bool Fits(const ForeignSignature& signature, const PublicKey& key, std::string_view message) {
    const std::optional<EcdsaSignature> numbers = ReadEcdsaSignature(signature.bytes);
    return numbers && IsSignedBy(key, message, *numbers);
}

void RequireGoodSignature(const std::vector<ForeignSignature>& signatures,
                          std::span<const PublicKey> keys, std::string_view message) {
    std::string knownKey;
    for (const ForeignSignature& signature : signatures) {
        for (const PublicKey& key : keys) {
            if (key.id == signature.keyId) {
                if (Fits(signature, key, message)) {
                    return;
                }
                knownKey = key.id;
            }
        }
    }
    if (signatures.empty()) {
        RaiseBadSignature("The feed has no signature");
    }
    RaiseBadSignature(knownKey.empty() ? "The feed has no signature by a known key"
                                       : "The feed's signature does not fit; key " + knownKey);
}

}  // namespace

std::string PreAuthenticationEncoding(std::string_view payload) {
    const std::string_view type = kFeedPayloadType;
    return "DSSEv1 " + std::to_string(type.size()) + ' ' + std::string(type) + ' ' +
           std::to_string(payload.size()) + ' ' + std::string(payload);
}

std::string OpenEnvelope(std::string_view envelope, std::span<const PublicKey> keys) {
    if (envelope.size() > kLargestEnvelope) {
        RaiseMalformed("it has more than " + std::to_string(kLargestEnvelope) + " bytes");
    }
    const JsonReading reading = ReadJsonObject(envelope);
    if (!reading.object) {
        RaiseMalformed(reading.problem);
    }
    RequireOnlyNames(*reading.object, {kTypeName, kPayloadName, kSignaturesName});
    if (Require<std::string>(*reading.object, kTypeName) != kFeedPayloadType) {
        RaiseMalformed("what it holds is not a feed");
    }
    std::string payload = RequireBytes(*reading.object, kPayloadName);
    RequireGoodSignature(ReadSignatures(*reading.object), keys, PreAuthenticationEncoding(payload));
    return payload;
}

std::string MakeEnvelope(std::string_view payload, std::string_view keyId,
                         std::string_view signature) {
    const std::string entry = JsonObject(
        {{kKeyName, JsonString(keyId)}, {kSignatureName, JsonString(EncodeBase64(signature))}});
    return JsonObject({{kTypeName, JsonString(kFeedPayloadType)},
                       {kPayloadName, JsonString(EncodeBase64(payload))},
                       {kSignaturesName, JsonArray({entry})}});
}

}  // namespace updater
