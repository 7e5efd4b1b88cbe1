#include "support/status_text.h"

#include <gtest/gtest.h>

#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace updater {

namespace {

TEST(EscapeStatusText, PutsABackslashBeforeBackslashesAndQuotes) {
    EXPECT_EQ(EscapeStatusText(R"(C:\Program Files\x)"), R"(C:\\Program Files\\x)");
    EXPECT_EQ(EscapeStatusText(R"(say "no")"), R"(say \"no\")");
    EXPECT_EQ(EscapeStatusText(R"(\")"), R"(\\\")");
}

TEST(EscapeStatusText, EveryControlCharacterBecomesOneSpace) {
    EXPECT_EQ(EscapeStatusText("a\nb\rc\td\r\ne"), "a b c d  e");
    for (char byte = 0; byte < 0x20; ++byte) {
        EXPECT_EQ(EscapeStatusText(std::string{'a', byte, 'b'}), "a b") << static_cast<int>(byte);
    }
}

TEST(EscapeStatusText, AllOtherBytesPassUnchanged) {
    for (int value = 0x20; value < 0x100; ++value) {
        const std::string byte(1, static_cast<char>(value));
        if (byte != "\\" && byte != "\"") {
            EXPECT_EQ(EscapeStatusText(byte), byte) << value;
        }
    }
}

TEST(EscapeStatusText, ChineseCharactersAndTheSlashStay) {
    EXPECT_EQ(EscapeStatusText("\xE5\x8D\x87\xE7\xBA\xA7 a/b \xF0\x9F\x98\x80"),
              "\xE5\x8D\x87\xE7\xBA\xA7 a/b \xF0\x9F\x98\x80");
}

TEST(EscapeStatusText, AnEmptyTextStaysEmpty) {
    EXPECT_EQ(EscapeStatusText(""), "");
}

TEST(FormatStatusRecord, IsOneLineWithoutSpacesBetweenThePieces) {
    EXPECT_EQ(FormatStatusRecord(
                  "failed", "Installed program inventory is missing; previous program restored", 1),
              R"({"state":"failed","message":"Installed program inventory is missing; )"
              R"(previous program restored","exitCode":1})");
    EXPECT_EQ(FormatStatusRecord("", "", 0), R"({"state":"","message":"","exitCode":0})");
}

TEST(FormatStatusRecord, OnlyTheMessageIsEscaped) {
    EXPECT_EQ(FormatStatusRecord("a\nb", "a\nb", 0),
              "{\"state\":\"a\nb\",\"message\":\"a b\",\"exitCode\":0}");
}

TEST(FormatStatusRecord, ExitCodesArePlainSignedDecimalNumbers) {
    const std::vector<std::pair<std::int32_t, std::string>> cases = {
        {0, "0"},
        {1, "1"},
        {2, "2"},
        {1223, "1223"},
        {1000000, "1000000"},
        {-1, "-1"},
        {std::numeric_limits<std::int32_t>::max(), "2147483647"},
        {std::numeric_limits<std::int32_t>::min(), "-2147483648"},
    };
    for (const auto& [exitCode, text] : cases) {
        EXPECT_EQ(FormatStatusRecord("s", "m", exitCode),
                  R"({"state":"s","message":"m","exitCode":)" + text + "}");
    }
}

TEST(FormatStatusRecord, EveryMessageGivesAJsonRecordThatHoldsIt) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", ""},
        {"Installed version 2.0.0.0", "Installed version 2.0.0.0"},
        {R"(\)", R"(\)"},
        {R"(")", R"(")"},
        {R"(\n \u0041 \\")", R"(\n \u0041 \\")"},
        {R"(filesystem error: copy_file: [C:\a "b"\c] [\\server\x\])",
         R"(filesystem error: copy_file: [C:\a "b"\c] [\\server\x\])"},
        {"line\r\nline", "line  line"},
        {std::string("a\0b", 3), "a b"},
        {"\x7F", "\x7F"},
        {"\xE5\x8D\x87\xE7\xBA\xA7 \xF0\x9F\x98\x80", "\xE5\x8D\x87\xE7\xBA\xA7 \xF0\x9F\x98\x80"},
        {R"({"state":"succeeded"})", R"({"state":"succeeded"})"},
    };
    for (const auto& [message, stored] : cases) {
        const auto record = nlohmann::ordered_json::parse(FormatStatusRecord("failed", message, 1));
        const nlohmann::ordered_json expected = {
            {"state", "failed"}, {"message", stored}, {"exitCode", 1}};
        EXPECT_EQ(record, expected);
    }
}

}  // namespace

}  // namespace updater
