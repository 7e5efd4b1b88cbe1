#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace updater {

/// A member of an object; the value is JSON already.
struct JsonMember {
    std::string_view name;
    std::string value;
};

/// Returns a text, UTF-8, as a JSON string.
std::string JsonString(std::string_view text);

/// Returns a list of values that are JSON already.
std::string JsonArray(const std::vector<std::string>& values);

/// Returns an object with the members in the order given, in one line.
std::string JsonObject(const std::vector<JsonMember>& members);

}  // namespace updater
