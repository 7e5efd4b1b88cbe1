#include "support/updater_arguments.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string_view>
#include <vector>

#include "fixtures/raised_errors.h"

namespace updater {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;
using testing::Pair;

// Splits off nothing: the tokens stand as they would after the program's own path.
UpdaterArguments Parse(std::vector<std::wstring_view> tokens) {
    tokens.insert(tokens.begin(), L"C:\\updater.exe");
    return ArgumentsFromTokens(tokens);
}

TEST(UpdaterArguments, NoTokenAtAllGivesAnEmptyMap) {
    EXPECT_THAT(ArgumentsFromTokens({}), IsEmpty());
}

TEST(UpdaterArguments, OnlyTheProgramNameGivesAnEmptyMap) {
    EXPECT_THAT(Parse({}), IsEmpty());
}

TEST(UpdaterArguments, TheFirstTokenIsSkippedWhateverItLooksLike) {
    const std::vector<std::wstring_view> tokens = {L"--worker", L"--job-dir", L"D"};
    EXPECT_THAT(ArgumentsFromTokens(tokens), ElementsAre(Pair(L"--job-dir", L"D")));
}

TEST(UpdaterArguments, ModeFlagsCarryOneAndTakeNoToken) {
    EXPECT_THAT(Parse({L"--self-test", L"--worker", L"--broker", L"--job-dir", L"D"}),
                ElementsAre(Pair(L"--broker", L"1"), Pair(L"--job-dir", L"D"),
                            Pair(L"--self-test", L"1"), Pair(L"--worker", L"1")));
}

TEST(UpdaterArguments, ARepeatedModeFlagCountsOnce) {
    EXPECT_THAT(Parse({L"--worker", L"--worker"}), ElementsAre(Pair(L"--worker", L"1")));
}

TEST(UpdaterArguments, NothingIsTheValueOfAModeFlag) {
    EXPECT_THAT(Parse({L"--worker", L""}), ElementsAre(Pair(L"--worker", L"1")));
    EXPECT_THAT(Parse({L"--worker", L"0", L"x"}),
                ElementsAre(Pair(L"--worker", L"1"), Pair(L"0", L"x")));
}

TEST(UpdaterArguments, OptionsStandInAnyOrder) {
    const UpdaterArguments expected = Parse({L"--worker", L"--job-dir", L"D", L"--size", L"1"});
    EXPECT_EQ(Parse({L"--job-dir", L"D", L"--worker", L"--size", L"1"}), expected);
    EXPECT_EQ(Parse({L"--size", L"1", L"--job-dir", L"D", L"--worker"}), expected);
}

TEST(UpdaterArguments, OptionNamesAreThoseOfTheContract) {
    EXPECT_THAT((std::vector<std::wstring_view>{kBrokerFlag, kWorkerFlag, kSelfTestFlag,
                                                kEventOption, kInstallDirOption, kInstallerOption,
                                                kJobDirOption, kParentPidOption, kSha256Option,
                                                kSizeOption, kVersionOption}),
                ElementsAre(L"--broker", L"--worker", L"--self-test", L"--event", L"--install-dir",
                            L"--installer", L"--job-dir", L"--parent-pid", L"--sha256", L"--size",
                            L"--version"));
}

TEST(UpdaterArguments, AKeyThatStandsLastIsDropped) {
    EXPECT_THAT(Parse({L"--broker", L"--job-dir"}), ElementsAre(Pair(L"--broker", L"1")));
}

TEST(UpdaterArguments, AKeyThatStandsLastLeavesItsEarlierValue) {
    EXPECT_THAT(Parse({L"--job-dir", L"D", L"--job-dir"}), ElementsAre(Pair(L"--job-dir", L"D")));
}

TEST(UpdaterArguments, ARepeatedKeyKeepsItsLastValue) {
    EXPECT_THAT(Parse({L"--worker", L"--job-dir", L"D", L"--job-dir", L"E"}),
                ElementsAre(Pair(L"--job-dir", L"E"), Pair(L"--worker", L"1")));
}

TEST(UpdaterArguments, AModeFlagAfterAKeyIsItsValueAndSelectsNothing) {
    EXPECT_THAT(Parse({L"--job-dir", L"--self-test"}),
                ElementsAre(Pair(L"--job-dir", L"--self-test")));
    EXPECT_THAT(Parse({L"--job-dir", L"--worker", L"--broker"}),
                ElementsAre(Pair(L"--broker", L"1"), Pair(L"--job-dir", L"--worker")));
}

TEST(UpdaterArguments, AnOptionAfterAKeyIsItsValue) {
    EXPECT_THAT(Parse({L"--job-dir", L"--install-dir", L"D"}),
                ElementsAre(Pair(L"--job-dir", L"--install-dir")));
}

TEST(UpdaterArguments, AnEmptyValueIsKeptAndTheNextTokenStandsForItself) {
    EXPECT_THAT(Parse({L"--job-dir", L"", L"--worker"}),
                ElementsAre(Pair(L"--job-dir", L""), Pair(L"--worker", L"1")));
}

TEST(UpdaterArguments, AnEmptyTokenInAKeysPlaceIsAKey) {
    EXPECT_THAT(Parse({L"", L"value"}), ElementsAre(Pair(L"", L"value")));
}

TEST(UpdaterArguments, AFlagInOtherLetterCaseOrFormIsAnOrdinaryKey) {
    const std::vector<std::wstring_view> forms = {
        L"--Worker",  L"--WORKER",   L"-worker",     L"/worker",    L"worker",   L" --worker",
        L"--worker ", L"--worker=1", L"--self-Test", L"--selftest", L"--BROKER", L"--brokers",
    };
    for (const std::wstring_view form : forms) {
        EXPECT_THAT(Parse({form, L"value"}), ElementsAre(Pair(form, L"value")));
        EXPECT_THAT(Parse({form}), IsEmpty());
    }
}

TEST(UpdaterArguments, OptionNamesAreCaseSensitive) {
    EXPECT_THAT(Parse({L"--Job-Dir", L"D", L"--job-dir", L"E"}),
                ElementsAre(Pair(L"--Job-Dir", L"D"), Pair(L"--job-dir", L"E")));
}

TEST(UpdaterArguments, AStrayWordIsAKeyThatTakesTheNextToken) {
    EXPECT_THAT(Parse({L"stray", L"--worker", L"--job-dir", L"D"}),
                ElementsAre(Pair(L"--job-dir", L"D"), Pair(L"stray", L"--worker")));
}

TEST(UpdaterArguments, KeysAreOrderedByCodeUnits) {
    EXPECT_THAT(Parse({L"\U0001F600", L"", L"\uFFFD", L"", L"a", L"", L"Z", L"", L"--version", L"",
                       L"--", L"", L"-", L""}),
                ElementsAre(Key(L"-"), Key(L"--"), Key(L"--version"), Key(L"Z"), Key(L"a"),
                            Key(L"\U0001F600"), Key(L"\uFFFD")));
}

TEST(RequireArgument, ReturnsThePresentValue) {
    const UpdaterArguments arguments = {{L"--job-dir", L" "}, {L"--size", L"0"}};
    EXPECT_EQ(RequireArgument(arguments, L"--job-dir"), L" ");
    EXPECT_EQ(RequireArgument(arguments, L"--size"), L"0");
}

TEST(RequireArgument, AnAbsentOptionIsMissing) {
    const UpdaterArguments arguments = {{L"--Job-Dir", L"D"}};
    EXPECT_THAT([&] { RequireArgument(arguments, L"--job-dir"); },
                RaisesError("Missing update argument"));
    EXPECT_THAT([&] { RequireArgument({}, L""); }, RaisesError("Missing update argument"));
}

TEST(RequireArgument, AnEmptyValueIsMissing) {
    const UpdaterArguments arguments = {{L"--job-dir", L""}};
    EXPECT_THAT([&] { RequireArgument(arguments, L"--job-dir"); },
                RaisesError("Missing update argument"));
}

}  // namespace

}  // namespace updater
