#include "support/updater_arguments.h"

#include <cstddef>
#include <stdexcept>

namespace updater {

namespace {

bool IsModeFlag(std::wstring_view token) {
    return token == kBrokerFlag || token == kWorkerFlag || token == kSelfTestFlag;
}

}  // namespace

UpdaterArguments ArgumentsFromTokens(std::span<const std::wstring_view> tokens) {
    UpdaterArguments arguments;
    std::size_t index = 1;
    while (index < tokens.size()) {
        const std::wstring key(tokens[index]);
        if (IsModeFlag(key)) {
            arguments[key] = L"1";
            index += 1;
            continue;
        }
        if (index + 1 >= tokens.size()) {
            break;
        }
        arguments[key] = tokens[index + 1];
        index += 2;
    }
    return arguments;
}

std::wstring RequireArgument(const UpdaterArguments& arguments, const std::wstring& option) {
    const auto found = arguments.find(option);
    if (found == arguments.end() || found->second.empty()) {
        throw std::runtime_error("Missing update argument");
    }
    return found->second;
}

}  // namespace updater
