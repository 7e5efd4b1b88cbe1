#include "app/dispatch.h"

#include <exception>
#include <stdexcept>

#include "app/command_line.h"
#include "broker/broker.h"
#include "selftest/self_test.h"
#include "support/exit_code.h"
#include "support/status_file.h"
#include "support/updater_arguments.h"
#include "worker/worker.h"

namespace updater {

namespace {

int RunSelectedMode(const UpdaterArguments& arguments) {
    if (arguments.contains(kSelfTestFlag)) {
        return RunSelfTest(RequireArgument(arguments, kJobDirOption));
    }
    if (arguments.contains(kWorkerFlag)) {
        return RunWorker(arguments);
    }
    if (arguments.contains(kBrokerFlag)) {
        return RunBroker(arguments);
    }
    throw std::runtime_error("Unknown updater mode");
}

}  // namespace

int RunUpdater() {
    UpdaterArguments arguments;
    try {
        arguments = ParseUpdaterArguments();
        return RunSelectedMode(arguments);
    } catch (const std::exception& failure) {
        WriteUpdateStatus(RequireArgument(arguments, kJobDirOption), kStateFailed, failure.what(),
                          kExitFailed);
        return kExitFailed;
    }
}

}  // namespace updater
