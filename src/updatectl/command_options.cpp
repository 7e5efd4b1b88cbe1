#include "updatectl/command_options.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <system_error>

#include "support/text_conversion.h"
#include "updatectl/output.h"

namespace updater {

CommandOptions ReadCommandOptions(std::span<const std::wstring> tokens,
                                  const std::vector<std::wstring_view>& flags,
                                  const std::vector<std::wstring_view>& valued) {
    CommandOptions options;
    for (std::size_t index = 0; index < tokens.size(); ++index) {
        const std::wstring& token = tokens[index];
        if (!token.starts_with(L"--")) {
            options.operands.push_back(token);
        } else if (std::ranges::find(flags, token) != flags.end()) {
            options.values[token].emplace_back();
        } else if (std::ranges::find(valued, token) == valued.end()) {
            throw UsageError(PrintableText(token) + " is not an option of this command");
        } else if (index + 1 == tokens.size() || tokens[index + 1].empty()) {
            throw UsageError(PrintableText(token) + " needs a value");
        } else {
            ++index;
            options.values[token].push_back(tokens[index]);
        }
    }
    return options;
}

std::vector<std::wstring> OptionValues(const CommandOptions& options, std::wstring_view name) {
    const auto found = options.values.find(name);
    return found == options.values.end() ? std::vector<std::wstring>() : found->second;
}

std::wstring OnlyValue(const CommandOptions& options, std::wstring_view name) {
    const std::vector<std::wstring> values = OptionValues(options, name);
    if (values.size() != 1) {
        throw UsageError(PrintableText(name) + (values.empty() ? " is missing" : " is repeated"));
    }
    return values.front();
}

std::optional<std::wstring> OptionalValue(const CommandOptions& options, std::wstring_view name) {
    return options.values.contains(name) ? std::optional(OnlyValue(options, name)) : std::nullopt;
}

std::wstring_view GivenOf(const CommandOptions& options, std::wstring_view first,
                          std::wstring_view second) {
    const bool isFirst = options.values.contains(first);
    if (isFirst != options.values.contains(second)) {
        return isFirst ? first : second;
    }
    throw UsageError(
        isFirst ? PrintableText(first) + " and " + PrintableText(second) + " exclude each other"
                : PrintableText(first) + " or " + PrintableText(second) + " is missing");
}

std::uint32_t ReadNumber(std::wstring_view name, const std::wstring& value, NumberRange range) {
    const std::string text = WideToUtf8(value);
    std::uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || rest != end || number < range.least || number > range.most) {
        throw UsageError(PrintableText(name) + " needs a number from " +
                         std::to_string(range.least) + " to " + std::to_string(range.most) +
                         ", not " + PrintableText(value));
    }
    return number;
}

void RequireOperands(const CommandOptions& options, std::span<const std::string_view> names) {
    const std::vector<std::wstring>& operands = options.operands;
    if (operands.size() > names.size()) {
        throw UsageError(PrintableText(operands[names.size()]) + " is one argument too many");
    }
    for (std::size_t index = 0; index < names.size(); ++index) {
        if (index == operands.size() || operands[index].empty()) {
            throw UsageError(std::string(names[index]) + " is missing");
        }
    }
}

}  // namespace updater
