#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "broker/broker.h"
#include "fixtures/application_names.h"
#include "fixtures/doubles/updater_doubles.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "inputs/option_tokens.h"
#include "support/process_utilities.h"
#include "support/text_conversion.h"
#include "support/updater_arguments.h"
#include "worker/worker.h"

namespace updater {

namespace {

using Tokens = std::vector<std::wstring>;

constexpr char kMissing[] = "Missing update argument";

// Nobody makes events of this name.
constexpr wchar_t kEventBaseName[] = L"Local\\" IDENTITY_BASE_NAME L"-{no broker}";

constexpr auto kFlags = std::to_array<const wchar_t*>({kBrokerFlag, kWorkerFlag, kSelfTestFlag});

// A complete set of options whose installation directory exists.
UpdaterArguments UsualArguments(const std::filesystem::path& installDirectory) {
    return {{kEventOption, kEventBaseName},
            {kInstallDirOption, installDirectory.native()},
            {kInstallerOption, L"D:\\job\\setup.exe"},
            {kJobDirOption, L"D:\\job"},
            {kParentPidOption, L"42"},
            {kSha256Option, std::wstring(64, L'0')},
            {kSizeOption, L"1234"},
            {kVersionOption, L"2.0.0.1"}};
}

Tokens TokensWithout(const UpdaterArguments& arguments, const std::wstring& option) {
    Tokens tokens = {L"updater.exe"};
    for (const auto& [name, value] : arguments) {
        if (name != option) {
            tokens.insert(tokens.end(), {name, value});
        }
    }
    return tokens;
}

// How an option may stand on the command line, after all the others.
struct OptionForm {
    std::string description;
    Tokens tokens;
    // What its mode reads then.
    std::optional<std::wstring> value;
};

std::wstring InUpperCase(std::wstring text) {
    std::transform(text.begin(), text.end(), text.begin(), [](wchar_t character) {
        const bool small = character >= L'a' && character <= L'z';
        return small ? static_cast<wchar_t>(character - L'a' + L'A') : character;
    });
    return text;
}

std::vector<OptionForm> OptionForms(const std::wstring& option, const std::wstring& value) {
    return {
        {"present", {option, value}, value},
        {"missing", {}, std::nullopt},
        {"empty", {option, L""}, L""},
        {"repeated", {option, L"first", option, value}, value},
        {"repeated, first empty", {option, L"", option, value}, value},
        {"repeated, last empty", {option, value, option, L""}, L""},
        {"last without a value", {option}, std::nullopt},
        {"repeated, last without a value", {option, value, option}, value},
        {"in upper case", {InUpperCase(option), value}, std::nullopt},
        {"with one capital",
         {L"--" + InUpperCase(option.substr(2, 1)) + option.substr(3), value},
         std::nullopt},
        {"without dashes", {option.substr(2), value}, std::nullopt},
        {"joined by an equals sign", {option + L"=" + value}, std::nullopt},
        {"as another one's value", {L"--stray", option}, std::nullopt},
        {"with another option as its value", {option, kSizeOption}, kSizeOption},
        {"with the broker's flag as its value", {option, kBrokerFlag}, kBrokerFlag},
        {"with the worker's flag as its value", {option, kWorkerFlag}, kWorkerFlag},
        {"with the self-test's flag as its value", {option, kSelfTestFlag}, kSelfTestFlag},
    };
}

// Calls `check` with every form of every option, and the options that it leaves to be read.
template <typename Check>
void ForEveryForm(const std::filesystem::path& installDirectory, Check check) {
    const UpdaterArguments usual = UsualArguments(installDirectory);
    for (const wchar_t* option : kValueOptions) {
        for (const OptionForm& form : OptionForms(option, usual.at(option))) {
            SCOPED_TRACE(WideToUtf8(option) + " " + form.description);
            Tokens tokens = TokensWithout(usual, option);
            tokens.insert(tokens.end(), form.tokens.begin(), form.tokens.end());
            check(option, form, MapOfTokens(tokens));
        }
    }
}

bool IsMissing(const OptionForm& form) {
    return form.value.value_or(L"").empty();
}

bool IsNumber(const std::wstring& value) {
    return value.find_first_not_of(L"0123456789") == std::wstring::npos;
}

// A mode's failure for the option, or the one at which it ends once it has read all of them.
std::string NumberError(const std::wstring& option, const OptionForm& form,
                        const std::string& otherwise) {
    if ((option != kSizeOption && option != kParentPidOption) || IsNumber(*form.value)) {
        return otherwise;
    }
    return option == kSizeOption ? "invalid stoull argument" : "invalid stoul argument";
}

TEST(OptionTable, EveryFormGivesTheMapItsValue) {
    ForEveryForm(L"C:\\App", [](const std::wstring& option, const OptionForm& form,
                                const UpdaterArguments& arguments) {
        const auto found = arguments.find(option);
        EXPECT_EQ(found != arguments.end(), form.value.has_value());
        if (found != arguments.end() && form.value) {
            EXPECT_EQ(found->second, *form.value);
        }
        for (const wchar_t* flag : kFlags) {
            EXPECT_FALSE(arguments.contains(flag)) << "no form selects a mode";
        }
        UpdaterArguments expectedOthers = UsualArguments(L"C:\\App");
        expectedOthers.erase(option);
        for (const auto& [name, value] : expectedOthers) {
            EXPECT_EQ(arguments.at(name), value) << "no form changes another option";
        }
    });
}

TEST(OptionTable, AnEmptyOrAbsentOptionIsMissing) {
    ForEveryForm(L"C:\\App", [](const std::wstring& option, const OptionForm& form,
                                const UpdaterArguments& arguments) {
        if (IsMissing(form)) {
            EXPECT_THAT([&] { RequireArgument(arguments, option); }, RaisesError(kMissing));
        } else {
            EXPECT_EQ(RequireArgument(arguments, option), *form.value);
        }
    });
}

TEST(OptionTable, TheWorkerReadsEveryForm) {
    const TemporaryDirectory directory;
    const ScopedReplacement elevated(doubles::IsProcessElevated, [] { return true; });
    const ScopedReplacement parent(
        doubles::OpenProcessOf,
        [](const std::filesystem::path& executable, std::uint32_t, const char*) {
            EXPECT_EQ(executable.filename(), kExecutableName);
            return OwnHandle(CreateEventW(nullptr, TRUE, TRUE, nullptr));
        });
    const ScopedReplacement noOther(doubles::EnsureNoOtherInstance,
                                    [](const std::filesystem::path&, std::uint32_t) {});
    // The real one is the machine's, and another test program may hold it.
    const ScopedReplacement ownMutex(doubles::CreateMutexW,
                                     [](LPSECURITY_ATTRIBUTES security, BOOL owned, LPCWSTR) {
                                         return CreateMutexW(security, owned, nullptr);
                                     });
    ForEveryForm(directory.path, [](const std::wstring& option, const OptionForm& form,
                                    const UpdaterArguments& arguments) {
        const auto run = [&] { RunWorker(arguments); };
        if (IsMissing(form)) {
            EXPECT_THAT(run, RaisesError(kMissing));
        } else if (option == kInstallDirOption && form.value->starts_with(L"--")) {
            EXPECT_THAT(run, RaisesFileSystemError("canonical", *form.value));
        } else {
            const std::string expected = NumberError(option, form, "Update broker is missing");
            EXPECT_THAT(run, testing::ThrowsMessage<std::exception>(expected));
        }
    });
}

TEST(OptionTable, TheBrokerReadsEveryForm) {
    const ScopedReplacement limited(doubles::IsProcessElevated, [] { return false; });
    const ScopedReplacement noParent(
        doubles::OpenProcessOf,
        [](const std::filesystem::path&, std::uint32_t, const char* mismatch) -> UniqueHandle {
            throw std::runtime_error(mismatch);
        });
    ForEveryForm(L"C:\\App", [](const std::wstring& option, const OptionForm& form,
                                const UpdaterArguments& arguments) {
        const std::string atTheParent = "Update parent does not match installation directory";
        std::string expected = atTheParent;
        if (option == kJobDirOption || option == kInstallDirOption || option == kParentPidOption) {
            expected = IsMissing(form) ? kMissing : NumberError(option, form, atTheParent);
        }
        EXPECT_THAT([&] { RunBroker(arguments); },
                    testing::ThrowsMessage<std::exception>(expected));
    });
}

}  // namespace

}  // namespace updater
