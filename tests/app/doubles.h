#pragma once

#include "support/windows_api.h"

// After the Windows types that it needs.
#include <shellapi.h>

#include <string>
#include <utility>

#include "broker/broker.h"
#include "fixtures/replacement.h"
#include "selftest/self_test.h"
#include "support/process_utilities.h"
#include "worker/worker.h"

namespace updater {

// Doubles of the process command line and of the three modes.

extern Replacement<decltype(CommandLineToArgvW)> commandLineToArgv;
extern Replacement<decltype(GetCommandLineW)> getCommandLine;
extern Replacement<decltype(LocalFree)> localFree;
extern Replacement<decltype(IsProcessElevated)> isProcessElevated;
extern Replacement<decltype(RunBroker)> runBroker;
extern Replacement<decltype(RunSelfTest)> runSelfTest;
extern Replacement<decltype(RunWorker)> runWorker;

/// Makes a text the command line of this process until the end of the scope.
struct ScopedCommandLine {
    explicit ScopedCommandLine(std::wstring newText) : text(std::move(newText)) {}

    std::wstring text;
    ScopedReplacement<decltype(GetCommandLineW)> replacement{getCommandLine,
                                                             [this] { return text.data(); }};
};

}  // namespace updater
