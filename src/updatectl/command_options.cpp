#include "updatectl/command_options.h"

#include <algorithm>
#include <cstddef>

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
