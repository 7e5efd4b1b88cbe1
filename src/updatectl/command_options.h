#pragma once

#include <cstdint>
#include <map>
#include <optional>
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

/// Returns the value of an option that need not be given; nothing if it is not. Raises `UsageError`
/// when it is repeated.
std::optional<std::wstring> OptionalValue(const CommandOptions& options, std::wstring_view name);

/// Returns the first option's name or the second one's: of the two, exactly one is to be given.
/// Raises `UsageError` otherwise.
std::wstring_view GivenOf(const CommandOptions& options, std::wstring_view first,
                          std::wstring_view second);

struct NumberRange {
    std::uint32_t least;
    std::uint32_t most;
};

/// Reads an option's value as a number, decimal digits alone. Raises `UsageError` for another text
/// and for a number outside the range.
std::uint32_t ReadNumber(std::wstring_view name, const std::wstring& value, NumberRange range);

/// Raises `UsageError` unless there are as many operands as the usage has names for.
void RequireOperands(const CommandOptions& options, std::span<const std::string_view> names);

}  // namespace updater
