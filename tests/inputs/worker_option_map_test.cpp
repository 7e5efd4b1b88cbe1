#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "broker/worker_parameters.h"
#include "fixtures/application_names.h"
#include "fixtures/system_splitting.h"
#include "inputs/option_tokens.h"
#include "inputs/random_source.h"
#include "inputs/random_text.h"
#include "support/updater_arguments.h"

namespace updater {

namespace {

using testing::ElementsAre;

constexpr wchar_t kEventBaseName[] =
    L"Local\\" IDENTITY_BASE_NAME L"-{01234567-89AB-CDEF-0123-456789ABCDEF}";

UpdaterArguments UsualBrokerArguments() {
    return {{kBrokerFlag, L"1"},
            {kInstallDirOption, L"C:\\Program Files\\Program\\"},
            {kInstallerOption, L"D:\\job \u4E2D\u6587\\setup.exe"},
            {kJobDirOption, L"D:\\job \u4E2D\u6587"},
            {kParentPidOption, L"42"},
            {kSha256Option, std::wstring(64, L'a')},
            {kSizeOption, L"1234"},
            {kVersionOption, L"2.0.0.1"}};
}

std::vector<std::wstring> WorkerTokens(const UpdaterArguments& brokerArguments) {
    return SplitBySystem(L"\"C:\\updater.exe\" " +
                         BuildWorkerParameters(brokerArguments, kEventBaseName));
}

// What the worker has to see. An option "--event" that the broker itself was given wins, because
// it stands later on the command line.
UpdaterArguments ExpectedWorkerArguments(UpdaterArguments arguments) {
    arguments.erase(kBrokerFlag);
    arguments[kWorkerFlag] = L"1";
    arguments.try_emplace(kEventOption, kEventBaseName);
    return arguments;
}

// A name without blanks and quotes, which is what forwarding it as it stands is made for.
std::wstring RandomName(RandomSource& random) {
    if (OneIn(random, 2)) {
        return OneOf(random, kValueOptions);
    }
    std::wstring name = RandomArgument(random, 1 + RandomBelow(random, 20));
    constexpr std::wstring_view kSplitting = L" \t\"";
    std::replace_if(
        name.begin(), name.end(),
        [&](wchar_t character) { return kSplitting.find(character) != std::wstring_view::npos; },
        L'-');
    return name == kSelfTestFlag || name == kWorkerFlag || name == kBrokerFlag ? L"--stray" : name;
}

UpdaterArguments RandomBrokerArguments(RandomSource& random) {
    UpdaterArguments arguments = {{kBrokerFlag, L"1"}};
    const std::size_t options = RandomBelow(random, 12);
    for (std::size_t i = 0; i < options; ++i) {
        arguments[RandomName(random)] =
            OneIn(random, 400) ? RandomArgument(random, kLongText) : RandomArgument(random);
    }
    return arguments;
}

std::vector<std::wstring> HostileValues() {
    return {
        L"",
        L" ",
        L"\t",
        L"\"",
        L"\"\"",
        L"\\",
        L"\\\\",
        L"\\\"",
        L"\\\\\"",
        L"C:\\App\\",
        L"--worker",
        L"--self-test",
        L"--broker",
        L"--event",
        L"x --self-test",
        L"x\" --self-test \"",
        L"x\\\" --self-test \\\"",
        L"x\\\\\" --self-test \\\\\"",
        L"\" --event \"Local\\\\other\" --version \"",
        L"\\\" --job-dir C:\\\\ \\\"",
        L"line\r\n--self-test",
        L"%COMSPEC% & ^ | < >",
        L"lone \xD800 and \xDC00",
        std::wstring(kLongText, L'x'),
        std::wstring(kLongText, L'"'),
        std::wstring(kLongText, L'\\'),
        std::wstring(kLongText - 1, L'\\') + L'"',
        std::wstring(kLongText / 2, L' ') + std::wstring(kLongText / 2, L'\xDFFF'),
    };
}

TEST(WorkerOptionMap, RandomMapsReachTheWorkerUnchanged) {
    RandomSource random = MakeRandomSource("worker's options");
    for (int round = 0; round < 10000; ++round) {
        const UpdaterArguments arguments = RandomBrokerArguments(random);
        ASSERT_EQ(MapOfTokens(WorkerTokens(arguments)), ExpectedWorkerArguments(arguments))
            << "in round " << round;
    }
}

TEST(WorkerOptionMap, NoValueAddsRemovesOrChangesAnOption) {
    for (const wchar_t* option : kValueOptions) {
        for (const std::wstring& value : HostileValues()) {
            UpdaterArguments arguments = UsualBrokerArguments();
            arguments[option] = value;
            EXPECT_EQ(MapOfTokens(WorkerTokens(arguments)), ExpectedWorkerArguments(arguments));
        }
    }
}

TEST(WorkerOptionMap, HostileValuesEverywhereAtOnceReachTheWorkerUnchanged) {
    for (const std::wstring& value : HostileValues()) {
        UpdaterArguments arguments = {{kBrokerFlag, L"1"}};
        for (const wchar_t* option : kValueOptions) {
            arguments[option] = value;
        }
        EXPECT_EQ(MapOfTokens(WorkerTokens(arguments)), ExpectedWorkerArguments(arguments));
    }
}

// An option's name is forwarded as it stands. One that holds blanks or quotes, or is empty, comes
// apart on the worker's command line. The broker's caller writes that name itself, and could
// as well have asked for the worker's options directly.
struct HostileName {
    std::wstring name;
    // What stands between the events' name and the option after it.
    std::vector<std::wstring> tokens;
};

const std::vector<HostileName> kHostileNames = {
    {L"", {L"value"}},
    {L"two words", {L"two", L"words", L"value"}},
    {L"tab\tbed", {L"tab", L"bed", L"value"}},
    {L" --self-test", {L"--self-test", L"value"}},
    {L"\"--self-test\"", {L"--self-test", L"value"}},
    {L"--self\"\"-test", {L"--self-test", L"value"}},
    {L"--job-dir C:\\other", {L"--job-dir", L"C:\\other", L"value"}},
    {L"\\\"quoted\\\"", {L"\"quoted\"", L"value"}},
    {L"open\"", {L"open value"}},
};

TEST(WorkerOptionMap, OnlyANameWithBlanksOrQuotesComesApart) {
    for (const HostileName& hostile : kHostileNames) {
        const UpdaterArguments arguments = {{kBrokerFlag, L"1"}, {hostile.name, L"value"}};
        std::vector<std::wstring> tokens = WorkerTokens(arguments);
        ASSERT_GT(tokens.size(), 4U);
        const std::vector<std::wstring> rest(tokens.begin() + 4, tokens.end());
        tokens.resize(4);
        EXPECT_THAT(tokens,
                    ElementsAre(L"C:\\updater.exe", kWorkerFlag, kEventOption, kEventBaseName));
        EXPECT_EQ(rest, hostile.tokens);
    }
}

}  // namespace

}  // namespace updater
