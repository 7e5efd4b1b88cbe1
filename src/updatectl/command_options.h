#pragma once

#include <map>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace updater {

/// The command line is not one that the command takes.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct CommandOptions {
    std::vector<std::wstring> operands;
    /// Each given option with its values; a flag has one empty value for each time it is given.
    std::map<std::wstring, std::vector<std::wstring>, std::less<>> values;
};

inline constexpr std::wstring_view kJsonFlag = L"--json";

/// Sorts a command's tokens. What begins with two dashes is an option; one that is no flag takes
/// the next token as its value. Raises `UsageError` for an unknown option and a missing value.
CommandOptions ReadCommandOptions(std::span<const std::wstring> tokens,
                                  const std::vector<std::wstring_view>& flags,
                                  const std::vector<std::wstring_view>& valued);

/// Returns an option's values in their order; none if it was not given.
std::vector<std::wstring> OptionValues(const CommandOptions& options, std::wstring_view name);

/// Returns the value of an option that is given exactly once. Raises `UsageError` when it is
/// missing or repeated.
std::wstring OnlyValue(const CommandOptions& options, std::wstring_view name);

/// Raises `UsageError` unless there are as many operands as the usage has names for.
void RequireOperands(const CommandOptions& options, std::span<const std::string_view> names);

}  // namespace updater
