// The input is a message. Its first bytes are the record's exit code as well.

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>

#include "fuzz/fuzz_input.h"
#include "fuzz/oracle/message_text.h"
#include "fuzz/property.h"
#include "support/status_text.h"

namespace updater {
namespace {

// Undoes the escaping; every byte of the escaped text has to be one that may stand there.
std::string Unescape(std::string_view escaped) {
    std::string text;
    for (std::size_t i = 0; i < escaped.size(); ++i) {
        if (escaped[i] == '\\') {
            ++i;
            Require(i < escaped.size() && (escaped[i] == '\\' || escaped[i] == '"'),
                    "a backslash escapes only a backslash or a quote");
        } else {
            Require(escaped[i] != '"', "every quote is escaped");
        }
        Require(static_cast<unsigned char>(escaped[i]) >= 0x20, "no control byte is left");
        text.push_back(escaped[i]);
    }
    return text;
}

bool IsUtf8(std::string_view text) {
    try {
        static_cast<void>(nlohmann::json(text).dump());
        return true;
    } catch (const nlohmann::json::type_error&) {
        return false;
    }
}

std::int32_t ExitCodeOfInput(std::string_view input) {
    std::int32_t exitCode = 0;
    std::memcpy(&exitCode, input.data(), std::min(input.size(), sizeof(exitCode)));
    return exitCode;
}

void CheckRecord(std::string_view message, std::int32_t exitCode) {
    const std::string record = FormatStatusRecord("failed", message, exitCode);
    const std::string expected = R"({"state":"failed","message":")" + EscapeStatusText(message) +
                                 R"(","exitCode":)" + std::to_string(exitCode) + "}";
    Require(record == expected, "a record has its one layout");
    if (!IsUtf8(message)) {
        return;
    }
    const nlohmann::json parsed = nlohmann::json::parse(record, nullptr, false);
    Require(!parsed.is_discarded(), "a record is JSON");
    Require(parsed == nlohmann::json{{"state", "failed"},
                                     {"message", WithSpacesForControls(std::string(message))},
                                     {"exitCode", exitCode}},
            "a record holds what was put into it");
}

}  // namespace
}  // namespace updater

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view message = updater::TextOfInput(data, size);
    updater::Require(updater::Unescape(updater::EscapeStatusText(message)) ==
                         updater::WithSpacesForControls(std::string(message)),
                     "the escaped text is the message with spaces for control bytes");
    updater::CheckRecord(message, updater::ExitCodeOfInput(message));
    return 0;
}
