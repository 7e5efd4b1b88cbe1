#include "support/status_text.h"

namespace updater {

std::string EscapeStatusText(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (const char byte : text) {
        if (byte == '\\' || byte == '"') {
            escaped.push_back('\\');
        }
        escaped.push_back(static_cast<unsigned char>(byte) < 0x20 ? ' ' : byte);
    }
    return escaped;
}

std::string FormatStatusRecord(std::string_view state, std::string_view message,
                               std::int32_t exitCode) {
    std::string record = R"({"state":")";
    record += state;
    record += R"(","message":")";
    record += EscapeStatusText(message);
    record += R"(","exitCode":)";
    record += std::to_string(exitCode);
    record += '}';
    return record;
}

}  // namespace updater
