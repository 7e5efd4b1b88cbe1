// The input is an envelope. One key is known; who has it signs every message by twice the number 1,
// which is what the system's verification is replaced with here.

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>

#include "client/base64.h"
#include "client/envelope.h"
#include "client/failure.h"
#include "fuzz/fuzz_input.h"
#include "fuzz/oracle/report_sentence.h"
#include "fuzz/property.h"

namespace updater {
namespace {

constexpr char kKeyId[] = "known";
constexpr char kGoodSignature[] = "MAYCAQECAQE=";

// The last message that the system was asked about.
std::string& VerifiedMessage() {
    static std::string message;
    return message;
}

void CheckOpened(std::string_view envelope, const std::string& payload) {
    const nlohmann::json tree = nlohmann::json::parse(envelope, nullptr, false);
    Require(!tree.is_discarded() && tree.size() == 3, "an envelope is JSON with three names");
    Require(tree.value("payloadType", "") == kFeedPayloadType, "its type is that of a feed");
    Require(tree.value("payload", "") == EncodeBase64(payload), "the payload is the envelope's");
    const nlohmann::json& signatures = tree.at("signatures");
    Require(signatures.size() <= 16, "there are at most 16 signatures");
    Require(std::ranges::any_of(signatures,
                                [](const nlohmann::json& signature) {
                                    return signature.value("keyid", "") == kKeyId &&
                                           signature.value("sig", "") == kGoodSignature;
                                }),
            "one of them is good");
    Require(VerifiedMessage() == "DSSEv1 44 " + std::string(kFeedPayloadType) + ' ' +
                                     std::to_string(payload.size()) + ' ' + payload,
            "the type and the payload are what is signed");
}

}  // namespace

bool IsSignedBy(const PublicKey& key, std::string_view message, const EcdsaSignature& signature) {
    Require(key.id == kKeyId, "only known keys are asked for");
    VerifiedMessage() = message;
    EcdsaSignature good{};
    good[31] = 1;
    good[63] = 1;
    return signature == good;
}

}  // namespace updater

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input = updater::TextOfInput(data, size);
    const updater::PublicKey key = {updater::kKeyId, {}};
    updater::VerifiedMessage().clear();
    try {
        updater::CheckOpened(input, updater::OpenEnvelope(input, {&key, 1}));
    } catch (const updater::ClientFailure& failure) {
        updater::Require(failure.result == APP_UPDATE_FEED_MALFORMED ||
                             failure.result == APP_UPDATE_BAD_SIGNATURE,
                         "an envelope is malformed or badly signed");
        updater::Require(updater::IsReportSentence(failure.what()), "a report is one plain line");
    }
    const std::string made = updater::MakeEnvelope(
        input, updater::kKeyId, updater::DecodeBase64(updater::kGoodSignature).value());
    updater::Require(updater::OpenEnvelope(made, {&key, 1}) == input, "what is made is opened");
    return 0;
}
