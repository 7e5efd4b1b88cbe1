#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "support/updater_arguments.h"

namespace updater {

/// Every option that takes a value.
inline constexpr auto kValueOptions =
    std::to_array<const wchar_t*>({kEventOption, kInstallDirOption, kInstallerOption, kJobDirOption,
                                   kParentPidOption, kSha256Option, kSizeOption, kVersionOption});

/// Returns the map of a command line's tokens.
inline UpdaterArguments MapOfTokens(const std::vector<std::wstring>& tokens) {
    const std::vector<std::wstring_view> views(tokens.begin(), tokens.end());
    return ArgumentsFromTokens(views);
}

}  // namespace updater
