#include "client/json_reading.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace updater {
namespace {

using testing::HasSubstr;

std::string ProblemOf(std::string_view text) {
    const JsonReading reading = ReadJsonObject(text);
    EXPECT_EQ(reading.object.has_value(), reading.problem.empty());
    return reading.problem;
}

TEST(ReadJsonObject, GivesTheValuesInTheirOrder) {
    const JsonReading reading = ReadJsonObject(
        " {\"text\":\"a\\u00e9\\n\",\"number\":18446744073709551615,\"list\":[1,[],\"x\"],"
        "\"object\":{\"inner\":0},\"none\":null} \n");
    ASSERT_TRUE(reading.object) << reading.problem;
    const JsonFields& fields = *reading.object;
    ASSERT_EQ(fields.size(), 5U);
    EXPECT_EQ(fields[0].name, "text");
    EXPECT_EQ(*FindJson<std::string>(fields, "text"), "a\xC3\xA9\n");
    EXPECT_EQ(*FindJson<std::uint64_t>(fields, "number"), 18446744073709551615U);
    const auto* const list = FindJson<JsonList>(fields, "list");
    ASSERT_EQ(list->size(), 3U);
    EXPECT_EQ(std::get<std::uint64_t>((*list)[0].content), 1U);
    EXPECT_TRUE(std::get<JsonList>((*list)[1].content).empty());
    EXPECT_EQ(std::get<std::string>((*list)[2].content), "x");
    EXPECT_EQ(*FindJson<std::uint64_t>(*FindJson<JsonFields>(fields, "object"), "inner"), 0U);
    EXPECT_NE(FindJson<OtherJson>(fields, "none"), nullptr);
}

TEST(ReadJsonObject, FindsOnlyWhatIsThereAndOfTheKindAskedFor) {
    const JsonReading reading = ReadJsonObject(R"({"a":1,"b":"x"})");
    EXPECT_EQ(FindJson<std::string>(*reading.object, "a"), nullptr);
    EXPECT_EQ(FindJson<std::uint64_t>(*reading.object, "b"), nullptr);
    EXPECT_EQ(FindJson<std::uint64_t>(*reading.object, "c"), nullptr);
    EXPECT_TRUE(HasOnlyNames(*reading.object, {"b", "a", "c"}));
    EXPECT_FALSE(HasOnlyNames(*reading.object, {"a"}));
}

TEST(ReadJsonObject, KnowsNoNumbersButWholeOnesWithoutSign) {
    for (const char* number :
         {"-1", "-0", "1.0", "1e2", "18446744073709551616", "0.5", "1E400", "true"}) {
        const JsonReading reading = ReadJsonObject(std::string("{\"n\":") + number + "}");
        EXPECT_TRUE(!reading.object || FindJson<OtherJson>(*reading.object, "n")) << number;
    }
    EXPECT_EQ(ProblemOf(R"({"n":1.5})"), "");
}

TEST(ReadJsonObject, RefusesWhatIsNotOneObject) {
    for (const char* text : {"",
                             " ",
                             "[]",
                             "1",
                             "\"x\"",
                             "null",
                             "true",
                             "{",
                             "}",
                             "{}{}",
                             "{} x",
                             "{\"a\":1,}",
                             "{\"a\"}",
                             "{a:1}",
                             "{'a':1}",
                             "{\"a\":01}",
                             "{\"a\":+1}",
                             "{\"a\":.5}",
                             "{\"a\":NaN}",
                             "{\"a\":1}//",
                             "/**/{}",
                             "{\"a\":\"\n\"}",
                             "{\"a\":\"\\x\"}",
                             "{\"a\":\"\\ud800\"}",
                             "{\"a\":\"x}"}) {
        EXPECT_NE(ProblemOf(text), "") << text;
    }
    EXPECT_EQ(ProblemOf("[]"), "it is not a JSON object");
    EXPECT_EQ(ProblemOf("{]"), "it is not JSON from byte 2 on");
}

TEST(ReadJsonObject, RefusesTextThatIsNotUtf8) {
    for (const char* bytes : {"\xFF", "\xC0\x80", "\xED\xA0\x80", "\xF5\x80\x80\x80", "\xE2\x82"}) {
        EXPECT_NE(ProblemOf("{\"a\":\"" + std::string(bytes) + "\"}"), "");
        EXPECT_NE(ProblemOf("{\"" + std::string(bytes) + "\":1}"), "");
    }
}

TEST(ReadJsonObject, RefusesAZeroByteWhateverFollowsIt) {
    using namespace std::string_literals;
    for (const std::string& text : {"{}\0"s, "{}\0{"s, "\0{}"s, "{\"a\":\"\0\"}"s}) {
        EXPECT_EQ(ProblemOf(text), "it is not JSON");
    }
}

TEST(ReadJsonObject, RefusesAByteOrderMark) {
    EXPECT_EQ(ProblemOf("\xEF\xBB\xBF{}"), "it is not JSON");
}

TEST(ReadJsonObject, RefusesANameThatStandsTwiceAtAnyLevel) {
    EXPECT_EQ(ProblemOf(R"({"a":1,"b":2,"a":3})"), R"("a" stands twice)");
    EXPECT_EQ(ProblemOf(R"({"a":1,"\u0061":3})"), R"("a" stands twice)");
    EXPECT_EQ(ProblemOf(R"({"x":[{"y":{},"y":0}]})"), R"("y" stands twice)");
    EXPECT_EQ(ProblemOf(R"({"a":{"a":{"a":1}},"b":{"a":1}})"), "");
}

// A report is one line, and who wrote the text is not known yet.
TEST(ReadJsonObject, ShowsNoNameThatIsNotPlain) {
    const std::string longName(65, 'n');
    for (const std::string& name : {std::string("\\n"), std::string("\xC3\xA9"), longName}) {
        EXPECT_EQ(ProblemOf("{\"" + name + "\":1,\"" + name + "\":1}"), "a name stands twice");
    }
    const std::string shown(64, 'n');
    EXPECT_EQ(ProblemOf("{\"" + shown + "\":1,\"" + shown + "\":1}"),
              '"' + shown + "\" stands twice");
}

std::string Levels(std::size_t count) {
    return "{\"a\":" + std::string(count - 1, '[') + std::string(count - 1, ']') + "}";
}

TEST(ReadJsonObject, RefusesMoreThanSixteenLevels) {
    EXPECT_EQ(ProblemOf(Levels(16)), "");
    EXPECT_EQ(ProblemOf(Levels(17)), "it has too many levels");
    EXPECT_EQ(ProblemOf("{\"a\":" + std::string(1000000, '[')), "it has too many levels");
    std::string objects;
    for (int level = 0; level < 17; ++level) {
        objects += "{\"a\":";
    }
    EXPECT_EQ(ProblemOf(objects), "it has too many levels");
}

// As large as a feed may be; the time for it grows with the number of names and not with its
// square.
TEST(ReadJsonObject, ReadsManyNames) {
    constexpr std::size_t kNames = 80000;
    std::string text = "{";
    for (std::size_t name = 0; name < kNames; ++name) {
        text += (name == 0 ? "\"" : ",\"") + std::to_string(name) + "\":{}";
    }
    const JsonReading reading = ReadJsonObject(text + "}");
    ASSERT_TRUE(reading.object) << reading.problem;
    EXPECT_EQ(reading.object->size(), kNames);
    EXPECT_EQ(ProblemOf(text + ",\"0\":1}"), "\"0\" stands twice");
}

}  // namespace
}  // namespace updater
