#include "client/json_reading.h"

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

namespace updater {

namespace {

constexpr std::size_t kMostLevels = 16;
// A name that a report may show.
constexpr std::size_t kLongestShownName = 64;

std::string ShownName(std::string_view name) {
    const bool isPlain = std::ranges::all_of(
        name, [](char character) { return character >= ' ' && character <= '~'; });
    return isPlain && name.size() <= kLongestShownName ? '"' + std::string(name) + '"' : "a name";
}

// A list or an object that has begun and not ended.
struct OpenLevel {
    JsonValue* value;
    // Kept beside the fields, so that a text of nothing but names is read quickly.
    std::set<std::string, std::less<>> names;
};

// Makes the value from what the parser finds, in its order. The parser knows its functions by their
// names; each returns whether to go on.
struct JsonBuilder {
    using Number = nlohmann::json;

    bool null() { return Add({}); }
    bool boolean(bool /*value*/) { return Add({}); }
    // Only those with a minus.
    bool number_integer(Number::number_integer_t /*value*/) { return Add({}); }
    bool number_unsigned(Number::number_unsigned_t value) { return Add({value}); }
    bool number_float(Number::number_float_t /*value*/, const std::string& /*text*/) {
        return Add({});
    }
    bool string(std::string& value) { return Add({std::move(value)}); }
    static bool binary(Number::binary_t& /*value*/) { return false; }
    bool start_object(std::size_t /*count*/) { return Open({JsonFields()}); }
    bool end_object() { return Close(); }
    bool start_array(std::size_t /*count*/) { return Open({JsonList()}); }
    bool end_array() { return Close(); }

    bool key(std::string& name) {
        OpenLevel& level = levels.back();
        if (!level.names.insert(name).second) {
            problem = ShownName(name) + " stands twice";
            return false;
        }
        std::get<JsonFields>(level.value->content).push_back({std::move(name), {}});
        return true;
    }

    bool parse_error(std::size_t position, const std::string& /*token*/,
                     const nlohmann::detail::exception& /*error*/) {
        problem = "it is not JSON from byte " + std::to_string(position) + " on";
        return false;
    }

    bool Add(JsonValue value) {
        *NextPlace() = std::move(value);
        return true;
    }

    bool Open(JsonValue value) {
        if (levels.size() == kMostLevels) {
            problem = "it has too many levels";
            return false;
        }
        JsonValue* const place = NextPlace();
        *place = std::move(value);
        levels.push_back({place, {}});
        return true;
    }

    bool Close() {
        levels.pop_back();
        return true;
    }

    // Only the innermost level grows, so that the places of the others stay what they are.
    JsonValue* NextPlace() {
        if (levels.empty()) {
            return &root;
        }
        JsonValue& parent = *levels.back().value;
        if (auto* const list = std::get_if<JsonList>(&parent.content)) {
            return &list->emplace_back();
        }
        return &std::get<JsonFields>(parent.content).back().value;
    }

    JsonValue root;
    std::vector<OpenLevel> levels;
    std::string problem;
};

}  // namespace

JsonReading ReadJsonObject(std::string_view text) {
    // To the parser a zero byte is the end of the text, whatever follows it, and a mark of the byte
    // order may come first.
    if (text.find('\0') != std::string_view::npos || text.starts_with("\xEF\xBB\xBF")) {
        return {std::nullopt, "it is not JSON"};
    }
    JsonBuilder builder;
    if (!nlohmann::json::sax_parse(text, &builder)) {
        return {std::nullopt, std::move(builder.problem)};
    }
    auto* const fields = std::get_if<JsonFields>(&builder.root.content);
    if (fields == nullptr) {
        return {std::nullopt, "it is not a JSON object"};
    }
    return {std::move(*fields), ""};
}

bool HasOnlyNames(const JsonFields& fields, std::initializer_list<std::string_view> names) {
    return std::ranges::all_of(fields, [names](const JsonField& field) {
        return std::ranges::find(names, field.name) != names.end();
    });
}

}  // namespace updater
