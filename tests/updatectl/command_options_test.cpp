#include "updatectl/command_options.h"

#include <gmock/gmock.h>

#include <array>
#include <optional>

#include "updatectl/output.h"

namespace updater {
namespace {

CommandOptions Read(const std::vector<std::wstring>& tokens) {
    return ReadCommandOptions(tokens, {L"--json", L"--force"}, {L"--keep", L"--exclude"});
}

auto RaisesUsageError(const std::string& message) {
    return testing::ThrowsMessage<UsageError>(testing::StrEq(message));
}

TEST(CommandOptions, SortsFlagsValuesAndOperandsInAnyOrder) {
    const CommandOptions options =
        Read({L"first", L"--exclude", L"a", L"--json", L"second", L"--exclude", L"b"});
    EXPECT_THAT(options.operands, testing::ElementsAre(L"first", L"second"));
    EXPECT_TRUE(options.values.contains(L"--json"));
    EXPECT_FALSE(options.values.contains(L"--force"));
    EXPECT_THAT(OptionValues(options, L"--exclude"), testing::ElementsAre(L"a", L"b"));
    EXPECT_THAT(OptionValues(options, L"--keep"), testing::IsEmpty());
}

TEST(CommandOptions, TakesAValueAsItIs) {
    for (const wchar_t* value : {L"--json", L"-", L"a=b", L" ", L"\u4E2D \"x\""}) {
        EXPECT_EQ(OnlyValue(Read({L"--keep", value}), L"--keep"), value);
    }
}

TEST(CommandOptions, RefusesWhatItDoesNotKnow) {
    EXPECT_THAT([] { Read({L"--Json"}); },
                RaisesUsageError("--Json is not an option of this command"));
    EXPECT_THAT([] { Read({L"--json=1"}); },
                RaisesUsageError("--json=1 is not an option of this command"));
    EXPECT_THAT([] { Read({L"--"}); }, RaisesUsageError("-- is not an option of this command"));
}

TEST(CommandOptions, RefusesAMissingOrEmptyValue) {
    EXPECT_THAT([] { Read({L"--keep"}); }, RaisesUsageError("--keep needs a value"));
    EXPECT_THAT([] { Read({L"--keep", L""}); }, RaisesUsageError("--keep needs a value"));
}

TEST(CommandOptions, RefusesARequiredValueThatIsMissingOrRepeated) {
    EXPECT_THAT([] { OnlyValue(Read({}), L"--keep"); }, RaisesUsageError("--keep is missing"));
    EXPECT_THAT([] { OnlyValue(Read({L"--keep", L"1", L"--keep", L"1"}), L"--keep"); },
                RaisesUsageError("--keep is repeated"));
}

TEST(CommandOptions, NeedNotAllBeGiven) {
    EXPECT_EQ(OptionalValue(Read({L"--keep", L"1"}), L"--keep"), L"1");
    EXPECT_EQ(OptionalValue(Read({L"--exclude", L"1"}), L"--keep"), std::nullopt);
    EXPECT_THAT([] { OptionalValue(Read({L"--keep", L"1", L"--keep", L"1"}), L"--keep"); },
                RaisesUsageError("--keep is repeated"));
}

TEST(CommandOptions, ExcludeEachOther) {
    const auto givenOf = [](const std::vector<std::wstring>& tokens) {
        return GivenOf(Read(tokens), L"--keep", L"--exclude");
    };
    EXPECT_EQ(givenOf({L"--keep", L"1"}), L"--keep");
    EXPECT_EQ(givenOf({L"--exclude", L"1"}), L"--exclude");
    EXPECT_THAT([&] { givenOf({L"--json"}); }, RaisesUsageError("--keep or --exclude is missing"));
    EXPECT_THAT([&] { givenOf({L"--exclude", L"1", L"--keep", L"1"}); },
                RaisesUsageError("--keep and --exclude exclude each other"));
}

TEST(CommandOptions, AreNumbersWithinTheirRange) {
    constexpr NumberRange kRange = {3, 4294967294};
    EXPECT_EQ(ReadNumber(L"--keep", L"3", kRange), 3U);
    EXPECT_EQ(ReadNumber(L"--keep", L"0004294967294", kRange), 4294967294U);
    for (const wchar_t* value : {L"2", L"4294967295", L"4294967299", L"99999999999999999999", L"",
                                 L"-3", L"+3", L" 3", L"3 ", L"3x", L"0x3", L"\u0663"}) {
        EXPECT_THROW(ReadNumber(L"--keep", value, kRange), UsageError) << PrintableText(value);
    }
    EXPECT_THAT([&] { ReadNumber(L"--keep", L"x\t", kRange); },
                RaisesUsageError("--keep needs a number from 3 to 4294967294, not x<U+0009>"));
}

TEST(CommandOptions, RefusesTooFewAndTooManyOperands) {
    constexpr std::array<std::string_view, 1> kNames = {"DIR"};
    EXPECT_NO_THROW(RequireOperands(Read({L"a"}), kNames));
    EXPECT_THAT([&] { RequireOperands(Read({}), kNames); }, RaisesUsageError("DIR is missing"));
    EXPECT_THAT([&] { RequireOperands(Read({L""}), kNames); }, RaisesUsageError("DIR is missing"));
    EXPECT_THAT([&] { RequireOperands(Read({L"a", L"b"}), kNames); },
                RaisesUsageError("b is one argument too many"));
}

}  // namespace
}  // namespace updater
