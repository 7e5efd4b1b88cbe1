#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>

namespace updater {

/// Option names, leading dashes included, with their values; a mode flag carries "1". Ordered by
/// UTF-16 code units. An empty value counts as a missing option everywhere.
using UpdaterArguments = std::map<std::wstring, std::wstring>;

inline constexpr wchar_t kBrokerFlag[] = L"--broker";
inline constexpr wchar_t kWorkerFlag[] = L"--worker";
inline constexpr wchar_t kSelfTestFlag[] = L"--self-test";

inline constexpr wchar_t kEventOption[] = L"--event";
inline constexpr wchar_t kInstallDirOption[] = L"--install-dir";
inline constexpr wchar_t kInstallerOption[] = L"--installer";
inline constexpr wchar_t kJobDirOption[] = L"--job-dir";
inline constexpr wchar_t kParentPidOption[] = L"--parent-pid";
inline constexpr wchar_t kSha256Option[] = L"--sha256";
inline constexpr wchar_t kSizeOption[] = L"--size";
inline constexpr wchar_t kVersionOption[] = L"--version";

/// Builds the option map from a split command line whose first token, the program's own path, is
/// skipped. Every token that is no mode flag is a key and takes the next token as its value,
/// whatever either looks like; a key that stands last is dropped; a repeated key keeps its last
/// value.
UpdaterArguments ArgumentsFromTokens(std::span<const std::wstring_view> tokens);

/// Returns a copy of the option's value. Raises `std::runtime_error` "Missing update argument" when
/// the option is absent or empty.
std::wstring RequireArgument(const UpdaterArguments& arguments, const std::wstring& option);

}  // namespace updater
