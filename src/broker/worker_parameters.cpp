#include "broker/worker_parameters.h"

#include "support/argument_quoting.h"

namespace updater {

std::wstring BuildWorkerParameters(const UpdaterArguments& arguments,
                                   const std::wstring& eventBaseName) {
    std::wstring parameters =
        std::wstring(kWorkerFlag) + L' ' + kEventOption + L' ' + QuoteArgument(eventBaseName);
    for (const auto& [option, value] : arguments) {
        if (option != kBrokerFlag) {
            parameters += L' ' + option + L' ' + QuoteArgument(value);
        }
    }
    return parameters;
}

}  // namespace updater
