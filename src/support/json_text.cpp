#include "support/json_text.h"

namespace updater {

std::string JsonString(std::string_view text) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string json = "\"";
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x20) {
            json += std::string("\\u00") + kDigits[byte >> 4U] + kDigits[byte & 0xFU];
            continue;
        }
        if (character == '"' || character == '\\') {
            json.push_back('\\');
        }
        json.push_back(character);
    }
    return json + '"';
}

std::string JsonArray(const std::vector<std::string>& values) {
    std::string json = "[";
    for (const std::string& value : values) {
        json += (json.size() > 1 ? "," : "") + value;
    }
    return json + "]";
}

std::string JsonObject(const std::vector<JsonMember>& members) {
    std::string json = "{";
    for (const JsonMember& member : members) {
        json += (json.size() > 1 ? "," : "") + JsonString(member.name) + ":" + member.value;
    }
    return json + "}";
}

}  // namespace updater
