#include "updatectl/json_text.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "support/text_conversion.h"

namespace updater {
namespace {

TEST(JsonText, KeepsEveryTextThroughAParser) {
    std::string everyByte;
    for (int byte = 0; byte < 0x80; ++byte) {
        everyByte.push_back(static_cast<char>(byte));
    }
    for (const std::string& text : {std::string(), everyByte, std::string("C:\\a \"b\"\n"),
                                    WideToUtf8(L"\u4E2D\U0001F600")}) {
        EXPECT_EQ(nlohmann::json::parse(JsonString(text)).get<std::string>(), text);
        EXPECT_EQ(nlohmann::json::parse(JsonString(Utf8ToWide(text))).get<std::string>(), text);
    }
}

TEST(JsonText, IsValidForTextThatIsNoUtf16) {
    for (const wchar_t unit : {L'\xD800', L'\xDBFF', L'\xDC00', L'\xDFFF'}) {
        const std::wstring text = std::wstring(L"a") + unit + L"b";
        EXPECT_EQ(nlohmann::json::parse(JsonString(text)).get<std::string>(),
                  "a\xEF\xBF\xBD"
                  "b");
    }
}

TEST(JsonText, PutsObjectsAndListsTogether) {
    EXPECT_EQ(JsonObject({{"a", JsonArray({})},
                          {"b\"", JsonArray({"1", JsonString(std::string_view("x"))})}}),
              R"({"a":[],"b\"":[1,"x"]})");
    EXPECT_EQ(JsonObject({}), "{}");
}

}  // namespace
}  // namespace updater
