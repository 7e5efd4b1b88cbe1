#include "updatectl/command_options.h"

#include <gmock/gmock.h>

#include <array>

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
