#pragma once

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace updater {

struct JsonField;
struct JsonValue;

using JsonList = std::vector<JsonValue>;
/// In the order in which the text has them; no two have the same name.
using JsonFields = std::vector<JsonField>;

/// A value that nothing here has a use for: null, true, false, and numbers with a sign, a fraction
/// or an exponent, or of more than 64 bits.
struct OtherJson {};

/// Texts are UTF-8.
struct JsonValue {
    std::variant<OtherJson, std::uint64_t, std::string, JsonList, JsonFields> content;
};

struct JsonField {
    std::string name;
    JsonValue value;
};

/// What became of a text: its value, or in words why it has none.
struct JsonReading {
    std::optional<JsonFields> object;
    std::string problem;
};

/// Reads a text that is one JSON object in valid UTF-8 and nothing beside it but white space. There
/// are at most 16 levels in it, and no name stands twice in an object. Raises nothing of its own.
JsonReading ReadJsonObject(std::string_view text);

/// Returns the value of a name as this alternative of `JsonValue`; null when there is none such.
template <typename Content>
const Content* FindJson(const JsonFields& fields, std::string_view name) {
    const auto field = std::ranges::find(fields, name, &JsonField::name);
    return field == fields.end() ? nullptr : std::get_if<Content>(&field->value.content);
}

/// Whether an object has nothing but these names, in any order.
bool HasOnlyNames(const JsonFields& fields, std::initializer_list<std::string_view> names);

}  // namespace updater
