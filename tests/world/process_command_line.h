#pragma once

#include <string>
#include <utility>

#include "fixtures/replacement.h"
#include "support/windows_api.h"

namespace updater {

extern Replacement<decltype(GetCommandLineW)> getCommandLine;

/// Makes a text the command line of this process until the end of the scope.
struct ScopedCommandLine {
    explicit ScopedCommandLine(std::wstring newText) : text(std::move(newText)) {}

    std::wstring text;
    ScopedReplacement<decltype(GetCommandLineW)> replacement{getCommandLine,
                                                             [this] { return text.data(); }};
};

}  // namespace updater
