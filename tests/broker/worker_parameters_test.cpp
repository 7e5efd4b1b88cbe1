#include "broker/worker_parameters.h"
#include "fixtures/application_names.h"

#include <gtest/gtest.h>

#include <string_view>
#include <vector>

#include "fixtures/system_splitting.h"

namespace updater {
namespace {

constexpr wchar_t kBaseName[] =
    L"Local\\" IDENTITY_BASE_NAME L"-{00112233-4455-6677-8899-AABBCCDDEEFF}";

TEST(WorkerParameters, HoldTheEventNameAndTheBrokersOptionsButNotItsModeFlag) {
    const UpdaterArguments arguments = {{L"--parent-pid", L"42"},
                                        {L"--job-dir", L"D:\\job"},
                                        {L"--install-dir", L"C:\\App\\"},
                                        {L"--broker", L"1"}};
    EXPECT_EQ(BuildWorkerParameters(arguments, kBaseName),
              LR"(--worker --event "Local\)" IDENTITY_BASE_NAME LR"(-{00112233-4455-6677-8899-AABBCCDDEEFF}")"
              LR"( --install-dir "C:\App\\" --job-dir "D:\job" --parent-pid "42")");
}

TEST(WorkerParameters, OfTheUsualOptionsStandInAlphabeticalOrder) {
    const UpdaterArguments arguments = {
        {L"--version", L"2.0.0.0"},   {L"--size", L"1234"},       {L"--sha256", L"0a"},
        {L"--parent-pid", L"42"},     {L"--job-dir", L"D:\\job"}, {L"--installer", L"D:\\s 2.exe"},
        {L"--install-dir", L"C:\\A"}, {L"--broker", L"1"},
    };
    EXPECT_EQ(BuildWorkerParameters(arguments, L"b"),
              LR"(--worker --event "b" --install-dir "C:\A" --installer "D:\s 2.exe")"
              LR"( --job-dir "D:\job" --parent-pid "42" --sha256 "0a" --size "1234")"
              LR"( --version "2.0.0.0")");
}

TEST(WorkerParameters, ForwardEveryOtherKeyAsItStands) {
    const UpdaterArguments arguments = {{L"--Broker", L"--broker"}, {L"--broker", L"1"},
                                        {L"--brokers", L""},        {L"--event", L"older"},
                                        {L"--worker", L"1"},        {L"stray word", L"a\"b"}};
    EXPECT_EQ(BuildWorkerParameters(arguments, L"b"),
              LR"(--worker --event "b" --Broker "--broker" --brokers "" --event "older")"
              LR"( --worker "1" stray word "a\"b")");
}

TEST(WorkerParameters, OfAnEmptyMapAreTheModeAndTheEventName) {
    EXPECT_EQ(BuildWorkerParameters({}, L"a b\\"), LR"(--worker --event "a b\\")");
}

TEST(WorkerParameters, GiveTheWorkerExactlyTheBrokersValues) {
    const UpdaterArguments arguments = {
        {L"--a", L""},
        {L"--b", L" "},
        {L"--c", L"\\\\server\\share\\"},
        {L"--d", L"quo\"te\\\"d"},
        {L"--e", L"\u7A0B\u5E8F \u66F4\u65B0\\\\"},
        {L"--f", L"tab\tline\n"},
        {L"--g", L"--broker"},
    };
    const std::wstring commandLine = L"updater.exe " + BuildWorkerParameters(arguments, kBaseName);
    const std::vector<std::wstring> tokens = SplitBySystem(commandLine);
    ASSERT_EQ(tokens.size(), 18U);
    EXPECT_EQ(tokens[1], kWorkerFlag);
    std::vector<std::wstring_view> options(tokens.begin(), tokens.end());
    options.erase(options.begin() + 1);
    UpdaterArguments expected = arguments;
    expected[kEventOption] = kBaseName;
    EXPECT_EQ(ArgumentsFromTokens(options), expected);
}

}  // namespace
}  // namespace updater
