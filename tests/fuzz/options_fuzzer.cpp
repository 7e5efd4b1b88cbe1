// The input is a split command line, its tokens separated by zero bytes.

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "fuzz/fuzz_input.h"
#include "fuzz/property.h"
#include "support/updater_arguments.h"

namespace updater {
namespace {

using Pairs = std::vector<std::pair<std::wstring, std::wstring>>;

// The options with their values in the order in which they stand.
Pairs PairsOfTokens(const std::vector<std::wstring>& tokens) {
    Pairs pairs;
    std::optional<std::wstring> name;
    for (std::size_t i = 1; i < tokens.size(); ++i) {
        const std::wstring& token = tokens[i];
        if (name) {
            pairs.emplace_back(*std::exchange(name, std::nullopt), token);
        } else if (token == L"--broker" || token == L"--worker" || token == L"--self-test") {
            pairs.emplace_back(token, L"1");
        } else {
            name = token;
        }
    }
    return pairs;
}

// The option's last value.
std::optional<std::wstring> ValueOf(const Pairs& pairs, const std::wstring& name) {
    const auto last = std::find_if(pairs.rbegin(), pairs.rend(),
                                   [&name](const auto& pair) { return pair.first == name; });
    return last == pairs.rend() ? std::nullopt : std::optional(last->second);
}

void CheckRequired(const UpdaterArguments& arguments, const Pairs& pairs,
                   const std::wstring& name) {
    const std::wstring expected = ValueOf(pairs, name).value_or(L"");
    try {
        Require(RequireArgument(arguments, name) == expected, "an option gives its last value");
        Require(!expected.empty(), "an empty or absent option is missing");
    } catch (const std::runtime_error& error) {
        Require(expected.empty(), "only an empty or absent option is missing");
        Require(std::string_view(error.what()) == "Missing update argument", "its message");
    }
}

}  // namespace
}  // namespace updater

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using updater::Require;
    const std::vector<std::wstring> tokens =
        updater::PiecesOfText(updater::TextOfInput(data, size));
    const std::vector<std::wstring_view> views(tokens.begin(), tokens.end());
    const updater::UpdaterArguments arguments = updater::ArgumentsFromTokens(views);
    const updater::Pairs pairs = updater::PairsOfTokens(tokens);

    for (const auto& [name, value] : arguments) {
        Require(updater::ValueOf(pairs, name) == value, "the map holds only what was given");
    }
    for (const auto& [name, value] : pairs) {
        Require(arguments.contains(name), "the map holds all that was given");
        updater::CheckRequired(arguments, pairs, name);
    }
    for (const wchar_t* name : {L"--event", L"--install-dir", L"--installer", L"--job-dir",
                                L"--parent-pid", L"--sha256", L"--size", L"--version"}) {
        updater::CheckRequired(arguments, pairs, name);
    }
    return 0;
}
