#include "client/version_number.h"

#include <gtest/gtest.h>

#include <optional>

namespace updater {
namespace {

TEST(VersionNumber, IsFourNumbersOfSixteenBits) {
    for (const char* text : {"0.0.0.0", "1.2.3.4", "65535.65535.65535.65535", "10.0.22000.1"}) {
        const std::optional<VersionNumber> version = ReadVersionNumber(text);
        ASSERT_TRUE(version) << text;
        EXPECT_EQ(VersionText(*version), text);
    }
    EXPECT_EQ(ReadVersionNumber("1.20.300.4000")->parts,
              (std::array<std::uint16_t, 4>{1, 20, 300, 4000}));
}

TEST(VersionNumber, RefusesEveryOtherText) {
    for (const char* text : {"",
                             "1",
                             "1.2.3",
                             "1.2.3.4.5",
                             "1.2.3.",
                             ".1.2.3",
                             "1..2.3",
                             "01.2.3.4",
                             "1.2.3.00",
                             "1.2.3.65536",
                             "99999999999999999999.0.0.0",
                             "-1.0.0.0",
                             "+1.0.0.0",
                             " 1.2.3.4",
                             "1.2.3.4 ",
                             "1.2.3.4\n",
                             "1,2,3,4",
                             "a.b.c.d",
                             "1.2.3.4a",
                             "0x1.0.0.0"}) {
        EXPECT_EQ(ReadVersionNumber(text), std::nullopt) << text;
    }
}

TEST(VersionNumber, IsComparedPartByPartAsNumbers) {
    const char* const ascending[] = {"0.0.0.0", "0.0.0.1", "0.0.1.0",  "0.1.0.0",
                                     "1.0.0.0", "1.9.0.0", "1.10.0.0", "2.0.0.0"};
    for (std::size_t index = 1; index < std::size(ascending); ++index) {
        EXPECT_LT(ReadVersionNumber(ascending[index - 1]), ReadVersionNumber(ascending[index]));
    }
}

}  // namespace
}  // namespace updater
